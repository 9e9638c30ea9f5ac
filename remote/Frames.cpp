#include "remote/Frames.h"

namespace corvana {

void Frames::take(std::span<const std::byte> bytes) {
  mBytes.insert(mBytes.end(), bytes.begin(), bytes.end());
}

Result<std::optional<std::vector<std::byte>>> Frames::next() {
  using Message = std::optional<std::vector<std::byte>>;
  if (mBytes.size() < mLengthBytes) return Message();
  std::size_t size = 0;
  for (std::size_t i = 0; i < mLengthBytes; ++i)
    size = size << 8U | std::to_integer<std::size_t>(mBytes[i]);
  if (size > mMostBytes) return Error{ErrorKind::limit, "the other machine says too much"};
  if (mBytes.size() - mLengthBytes < size) return Message();
  const auto begin = mBytes.begin() + static_cast<std::ptrdiff_t>(mLengthBytes);
  const auto end = begin + static_cast<std::ptrdiff_t>(size);
  Message message(std::in_place, begin, end);
  mBytes.erase(mBytes.begin(), end);
  return message;
}

std::vector<std::byte> Frames::framed(std::size_t lengthBytes, std::span<const std::byte> message) {
  std::vector<std::byte> bytes;
  bytes.reserve(lengthBytes + message.size());
  for (std::size_t i = lengthBytes; i-- > 0;)
    bytes.push_back(static_cast<std::byte>(message.size() >> 8U * i & 0xFFU));
  bytes.insert(bytes.end(), message.begin(), message.end());
  return bytes;
}

}  // namespace corvana
