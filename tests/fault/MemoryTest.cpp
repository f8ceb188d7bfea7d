#include <cstdlib>
#include <new>

#include "station/edit/EditSummary.h"
#include "station/edit/OtioDocument.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

// Every allocation of this program can be made to fail, but where ThreadSanitizer has operators of
// its own that cannot be replaced: there these tests, which have one thread, are left out.
#ifdef __has_feature
#if __has_feature(thread_sanitizer)
#define KV_OPERATORS_ARE_FIXED
#endif
#endif
#ifndef KV_OPERATORS_ARE_FIXED

namespace {

long allocationsLeft = -1;  ///< until one fails; below zero, none does

void* allocate(std::size_t size) {
  if (allocationsLeft == 0) {
    allocationsLeft = -1;
    throw std::bad_alloc();
  }
  if (allocationsLeft > 0) --allocationsLeft;
  void* const memory = std::malloc(size);
  return memory ? memory : throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
// What the standard library asks for without exceptions comes from the same place.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace {

class MemoryTest : public DocumentStation {
 protected:
  /// Runs it once with each of its allocations failing, until it has no such allocation: true when
  /// it then succeeds. What it fails with must speak of memory.
  template <typename Work>
  bool survives(const Work& work, long step) {
    for (long allocation = 0;; allocation += step) {
      std::string problem;
      bool isWell = false;
      allocationsLeft = allocation;
      try {
        const auto result = work();
        isWell = static_cast<bool>(result);
        const long left = std::exchange(allocationsLeft, -1);
        if (!isWell) problem = result.error().message;
        if (left >= 0) return isWell;
      } catch (const std::bad_alloc&) {
        allocationsLeft = -1;  // the console tells of it: the command failed unexpectedly
      }
      ++failures;
      if (problem.empty()) continue;
      EXPECT_TRUE(problem.find("memory") != problem.npos ||
                  problem.find("allocate") != problem.npos)
          << allocation << ": " << problem;
    }
  }

  int failures = 0;
};

TEST_F(MemoryTest, AnEditForWhichThereIsNoMemoryIsRefusedAndNotCalledBroken) {
  const std::string bytes = bytesOf(KV_SAMPLES "/screening_example.otio");
  EXPECT_TRUE(survives([&] { return OtioDocument::parse(bytes); }, 3));
  EXPECT_TRUE(survives([&] { return readEditSummary(bytes); }, 1));
  EXPECT_GT(failures, 50);
}

TEST_F(MemoryTest, OpeningAnEditWithoutMemoryLosesNothing) {
  const Cookie cookie = imported("simple_cut.otio");
  const std::string before = bytesOf(fileOf(cookie));
  EXPECT_TRUE(survives([&] { return edits.open(cookie); }, 3));
  EXPECT_GT(failures, 20);
  EXPECT_EQ(bytesOf(fileOf(cookie)), before);
  EXPECT_TRUE(EditActions::rename(cookie, "Still there"));
  EXPECT_TRUE(EditActions::save(cookie));
}

TEST_F(MemoryTest, SavingAnEditWithoutMemoryKeepsTheFileWhole) {
  const Cookie cookie = imported("simple_cut.otio");
  ASSERT_TRUE(edits.open(cookie));
  EXPECT_TRUE(survives(
      [&] {
        const auto renamed = EditActions::rename(cookie, "Another name that is long enough");
        return renamed ? EditActions::save(cookie) : renamed;
      },
      11));
  const auto stored = OtioDocument::parse(bytesOf(fileOf(cookie)));
  EXPECT_EQ(stored ? stored->name() : "", "Another name that is long enough");
}

TEST_F(MemoryTest, AProjectForWhichThereIsNoMemoryIsOpenWholeOrNotAtAll) {
  const Cookie cookie = imported("simple_cut.otio");
  EXPECT_TRUE(survives(
      [&]() -> Result<void> {
        if (projects.current()) static_cast<void>(projects.leave());
        return projects.enter("Film");
      },
      3));
  EXPECT_GT(failures, 20);
  EXPECT_TRUE(projects.current() != nullptr);
  EXPECT_EQ(edits.nameOf(cookie), "Figure 1 - Simple Cut List");
}

}  // namespace

#endif
