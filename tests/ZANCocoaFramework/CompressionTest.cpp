#include "ZANCocoaFramework/ZAN_DataUtils.h"

#include <gmock/gmock.h>

#include "tests/ZANCocoaFramework/ArchiveBytes.h"

namespace corvana {
namespace {

TEST(Compression, GivesBackWhatItTook) {
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, std::size_t{65536}, std::size_t{300001}}) {
    ArchiveBytes data(size);
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<std::byte>(i * i >> 7);
    const auto again = ZAN_Compression::decompressedData(ZAN_Compression::compressedData(data));
    ASSERT_TRUE(again) << again.error().text;
    EXPECT_EQ(*again == data, true) << size;
  }
}

TEST(Compression, RefusesDamageAndMoreThanItMay) {
  const ArchiveBytes packed = ZAN_Compression::compressedData(ArchiveBytes(30000));
  EXPECT_TRUE(ZAN_Compression::decompressedData(packed, 30000));
  EXPECT_EQ(ZAN_Compression::decompressedData(packed, 29999).error().kind, ErrorKind::limit);
  EXPECT_EQ(ZAN_Compression::decompressedData(packed, 0).error().kind, ErrorKind::limit);
  for (std::size_t size = 0; size < packed.size(); ++size) {
    const auto cut = ZAN_Compression::decompressedData(std::span(packed).first(size));
    EXPECT_FALSE(cut) << size;
  }
  ArchiveBytes changed = packed;
  changed.back() ^= std::byte{1};
  EXPECT_EQ(ZAN_Compression::decompressedData(changed).error().kind, ErrorKind::damaged);
  changed = packed;
  changed.push_back(std::byte{0});
  EXPECT_EQ(ZAN_Compression::decompressedData(changed).error().kind, ErrorKind::damaged);
}

}  // namespace
}  // namespace corvana
