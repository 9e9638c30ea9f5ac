#include "ZANCocoaFramework/ZAN_Accents.h"

#include <QList>
#include <QString>
#include <algorithm>
#include <array>

namespace corvana {
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
