// Movable blocks: zeroing, locks, resizing that keeps contents, refusals.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/movable.h"

namespace {

TEST(Movable, AllocZeroesOnRequestAndCountsLocks) {
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 4096);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(GlobalSize(block), 4096u);
  auto *bytes = static_cast<uint8_t *>(GlobalLock(block));
  ASSERT_NE(bytes, nullptr);
  for (int i = 0; i < 4096; ++i)
    ASSERT_EQ(bytes[i], 0) << i;
  EXPECT_EQ(GlobalLock(block), bytes);
  EXPECT_EQ(GlobalLockCount(block), 2u);
  EXPECT_TRUE(GlobalUnlock(block));   // one lock left
  EXPECT_FALSE(GlobalUnlock(block));  // now unlocked
  EXPECT_FALSE(GlobalUnlock(block));  // unlocking an unlocked block changes nothing
  EXPECT_EQ(GlobalLockCount(block), 0u);
  EXPECT_EQ(GlobalFree(block), nullptr);
}

TEST(Movable, ReAllocKeepsContentsZeroesTheRestAndRespectsLocks) {
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, 8);
  ASSERT_NE(block, nullptr);
  std::memcpy(GlobalLock(block), "korvel!", 8);
  // Locked: growing needs leave to move; shrinking is always allowed.
  EXPECT_EQ(GlobalReAlloc(block, 1 << 20, 0), nullptr);
  EXPECT_EQ(GlobalSize(block), 8u);
  EXPECT_EQ(GlobalReAlloc(block, 6, 0), block);
  EXPECT_EQ(GlobalReAlloc(block, 1 << 20, GMEM_MOVEABLE | GMEM_ZEROINIT), block);
  GlobalUnlock(block);
  auto *bytes = static_cast<uint8_t *>(GlobalLock(block));
  EXPECT_EQ(std::memcmp(bytes, "korvel", 6), 0);
  for (int i = 6; i < 1 << 20; i += 4099)
    ASSERT_EQ(bytes[i], 0) << i;
  EXPECT_EQ(GlobalReAlloc(block, 0, 0), nullptr);  // cannot empty a locked block
  GlobalUnlock(block);
  EXPECT_EQ(GlobalReAlloc(block, 0, 0), block);
  EXPECT_EQ(GlobalLock(block), nullptr);  // no bytes to reach
  EXPECT_EQ(GlobalFree(block), nullptr);
}

TEST(Movable, HandlesThatNameNoLiveBlockAreRefused) {
  HGLOBAL block = GlobalAlloc(GMEM_FIXED, 16);
  GlobalLock(block);
  EXPECT_EQ(GlobalFree(block), nullptr);  // a locked block can be freed
  // The stale handle is never dereferenced.
  EXPECT_EQ(GlobalLock(block), nullptr);
  EXPECT_FALSE(GlobalUnlock(block));
  EXPECT_EQ(GlobalReAlloc(block, 32, GMEM_MOVEABLE), nullptr);
  EXPECT_EQ(GlobalSize(block), 0u);
  EXPECT_EQ(GlobalFree(block), block);
  EXPECT_EQ(GlobalFree(nullptr), nullptr);
  // Running out of memory is a null result.
  EXPECT_EQ(GlobalAlloc(GMEM_MOVEABLE, SIZE_MAX / 2), nullptr);
}

TEST(Movable, SerialChangesWithEveryNewStateOfABlock) {
  HGLOBAL a = GlobalAlloc(GMEM_MOVEABLE, 16);
  HGLOBAL b = GlobalAlloc(GMEM_MOVEABLE, 16);
  const uint64_t first = GlobalSerial(a);
  EXPECT_NE(first, 0u);
  EXPECT_NE(GlobalSerial(b), first);
  GlobalLock(a);
  GlobalUnlock(a);
  EXPECT_EQ(GlobalSerial(a), first);  // locking alone changes nothing
  GlobalTouch(a);
  const uint64_t touched = GlobalSerial(a);
  EXPECT_NE(touched, first);
  ASSERT_EQ(GlobalReAlloc(a, 32, GMEM_MOVEABLE), a);
  const uint64_t resized = GlobalSerial(a);
  EXPECT_NE(resized, touched);
  EXPECT_EQ(GlobalReAlloc(a, SIZE_MAX / 2, GMEM_MOVEABLE), nullptr);
  EXPECT_EQ(GlobalSerial(a), resized);  // a failed resize leaves the block as it was
  GlobalFree(a);
  GlobalFree(b);
  EXPECT_EQ(GlobalSerial(a), 0u);
}

TEST(Movable, LargeBlocksKeepTheirBytesAndZeroWhatGrowsAtEverySize) {
  // Sizes that cross between heap and system-mapped storage both ways, and a
  // shrink and regrowth of a mapped block whose slack held other bytes.
  constexpr size_t kMiB = size_t{1} << 20;
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, 100);
  ASSERT_NE(block, nullptr);
  std::memcpy(GlobalLock(block), "photo", 5);
  GlobalUnlock(block);
  size_t size = 100;
  for (size_t next : {6 * kMiB, 3 * kMiB, 9 * kMiB, 5 * kMiB + 7, 12 * kMiB, size_t{40}}) {
    SCOPED_TRACE(next);
    auto *old = static_cast<uint8_t *>(GlobalLock(block));
    std::memset(old + 5, 0xAB, size - 5);  // everything but the name is scribbled on
    GlobalUnlock(block);
    ASSERT_EQ(GlobalReAlloc(block, next, GMEM_MOVEABLE | GMEM_ZEROINIT), block);
    EXPECT_EQ(GlobalSize(block), next);
    const auto *bytes = static_cast<const uint8_t *>(GlobalLock(block));
    EXPECT_EQ(std::memcmp(bytes, "photo", 5), 0);
    for (size_t at = 5; at < next; at += 4093)
      ASSERT_EQ(bytes[at], at < size ? 0xAB : 0) << at;
    EXPECT_EQ(bytes[next - 1], next - 1 < size ? 0xAB : 0);
    GlobalUnlock(block);
    size = next;
  }
  EXPECT_EQ(GlobalReAlloc(block, SIZE_MAX / 2, GMEM_MOVEABLE), nullptr);
  EXPECT_EQ(GlobalSize(block), 40u);
  EXPECT_EQ(GlobalFree(block), nullptr);
  HGLOBAL big = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 8 * kMiB);
  ASSERT_NE(big, nullptr);
  EXPECT_EQ(static_cast<const uint8_t *>(GlobalLock(big))[8 * kMiB - 1], 0);
  EXPECT_EQ(GlobalFree(big), nullptr);
}

}  // namespace
