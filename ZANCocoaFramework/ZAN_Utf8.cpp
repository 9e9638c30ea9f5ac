#include "ZANCocoaFramework/ZAN_Utf8.h"

#include <QList>
#include <QString>
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace corvana {

namespace {

/// How many bytes the well-formed character at the start takes, 0 when there is none.
std::size_t characterLength(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto follows = [&](std::size_t i, unsigned least, unsigned most) {
    return i < text.size() && byte(i) >= least && byte(i) <= most;
  };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first < 0xc2 || first > 0xf4) return 0;
  if (first < 0xe0) return follows(1, 0x80, 0xbf) ? 2 : 0;
  // The second byte keeps out overlong forms, surrogates and what lies above the last code point.
  const unsigned least = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
  const unsigned most = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
  if (!follows(1, least, most) || !follows(2, 0x80, 0xbf)) return 0;
  if (first < 0xf0) return 3;
  return follows(3, 0x80, 0xbf) ? 4 : 0;
}

/// How many bytes at the start are well-formed characters.
std::size_t wellFormedLength(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    std::uint64_t word = 0;
    if (text.size() - i >= sizeof word) {
      std::memcpy(&word, text.data() + i, sizeof word);
      if ((word & 0x8080808080808080U) == 0) {
        i += sizeof word;
        continue;
      }
    }
    const std::size_t length = characterLength(text.substr(i));
    if (length == 0) return i;
    i += length;
  }
  return i;
}

}  // namespace

bool isUtf8(std::string_view text) { return wellFormedLength(text) == text.size(); }

std::string withReplacedBytes(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const std::size_t good = wellFormedLength(text);
    out.append(text.substr(0, good));
    if (good < text.size()) out += "\xef\xbf\xbd";
    text.remove_prefix(good < text.size() ? good + 1 : good);
  }
  return out;
}

std::string_view beginningOfBytes(std::string_view text, std::size_t bytes) {
  if (text.size() <= bytes) return text;
  while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xc0U) == 0x80) --bytes;
  return text.substr(0, bytes);
}

std::u16string utf16(std::string_view text) {
  const std::string whole = withReplacedBytes(text);
  std::u16string units;
  for (std::size_t i = 0; i < whole.size();) {
    const std::size_t length = characterLength(std::string_view(whole).substr(i));
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(whole[i + at]); };
    // The first byte's own bits, then six of each that follows.
    char32_t point = length == 1 ? byte(0) : byte(0) & (0xffU >> (length + 1));
    for (std::size_t at = 1; at < length; ++at) point = point << 6U | (byte(at) & 0x3fU);
    if (point < 0x10000) {
      units += static_cast<char16_t>(point);
    } else {
      units += static_cast<char16_t>(0xd7c0U + (point >> 10U));
      units += static_cast<char16_t>(0xdc00U + (point & 0x3ffU));
    }
    i += length;
  }
  return units;
}

namespace {

bool isAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::string asciiLowercase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return lower;
}

QString qtText(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

std::string foldedCase(std::string_view text) {
  return isAscii(text) ? asciiLowercase(text) : qtText(text).toCaseFolded().toStdString();
}

std::string lowercase(std::string_view text) {
  return isAscii(text) ? asciiLowercase(text) : qtText(text).toLower().toStdString();
}

namespace {

struct Likeness {
  char32_t character;
  const char* text;
};

/// What is not made of ASCII and marks, and yet has its like there. In order.
constexpr auto kLike = std::to_array<Likeness>({
    {U'\u00a9', "(c)"}, {U'\u00ab', "\""}, {U'\u00ad', ""},   {U'\u00ae', "(R)"},
    {U'\u00b1', "+/-"}, {U'\u00b7', "."},  {U'\u00bb', "\""}, {U'\u00c6', "AE"},
    {U'\u00d0', "D"},   {U'\u00d7', "x"},  {U'\u00d8', "O"},  {U'\u00de', "Th"},
    {U'\u00df', "ss"},  {U'\u00e6', "ae"}, {U'\u00f0', "d"},  {U'\u00f7', "/"},
    {U'\u00f8', "o"},   {U'\u00fe', "th"}, {U'\u0110', "D"},  {U'\u0111', "d"},
    {U'\u0131', "i"},   {U'\u0141', "L"},  {U'\u0142', "l"},  {U'\u0152', "OE"},
    {U'\u0153', "oe"},  {U'\u1e9e', "SS"}, {U'\u200b', ""},   {U'\u2010', "-"},
    {U'\u2012', "-"},   {U'\u2013', "-"},  {U'\u2014', "-"},  {U'\u2015', "-"},
    {U'\u2018', "'"},   {U'\u2019', "'"},  {U'\u201a', "'"},  {U'\u201b', "'"},
    {U'\u201c', "\""},  {U'\u201d', "\""}, {U'\u201e', "\""}, {U'\u201f', "\""},
    {U'\u2022', "*"},   {U'\u2028', "\n"}, {U'\u2029', "\n"}, {U'\u2032', "'"},
    {U'\u2039', "'"},   {U'\u203a', "'"},  {U'\u2044', "/"},  {U'\u20ac', "EUR"},
    {U'\u2190', "<-"},  {U'\u2192', "->"}, {U'\u2212', "-"},  {U'\u2215', "/"},
    {U'\ufeff', ""},
});
static_assert(std::ranges::is_sorted(kLike, {}, &Likeness::character));

/// Null for what has none.
const char* likeOf(char32_t character) {
  const auto found = std::ranges::lower_bound(kLike, character, {}, &Likeness::character);
  return found != kLike.end() && found->character == character ? found->text : nullptr;
}

/// What a character without its marks is made of, as far as it has its like.
std::string likenessOf(char32_t character) {
  std::string like;
  for (const char32_t part :
       QString::fromUcs4(&character, 1).normalized(QString::NormalizationForm_KD).toUcs4()) {
    if (part < 0x80)
      like += static_cast<char>(part);
    else if (QChar::category(part) == QChar::Separator_Space)
      like += ' ';
    else if (const char* text = likeOf(part))
      like += text;
  }
  return like;
}

}  // namespace

std::string asciiWithLoss(std::string_view text) {
  std::string ascii;
  ascii.reserve(text.size());
  const QString all = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
  for (const char32_t character : all.toUcs4()) {
    if (character < 0x80) {
      ascii += static_cast<char>(character);
    } else if (const char* whole = likeOf(character)) {
      ascii += whole;
    } else if (!QChar::isMark(character)) {
      const std::string like = likenessOf(character);
      ascii += like.empty() ? "?" : like;
    }
  }
  return ascii;
}

std::string withoutAccents(std::string_view text) {
  QString apart = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))
                      .normalized(QString::NormalizationForm_D);
  apart.removeIf([](QChar c) { return c.category() == QChar::Mark_NonSpacing; });
  return apart.normalized(QString::NormalizationForm_C).toStdString();
}

}  // namespace corvana
