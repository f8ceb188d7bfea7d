#include "tests/contract/FileManagerContract.h"
#include "tests/fakes/FakeHost.h"

using namespace korvel;

namespace {

class FakeFilesUnderTest : public FileManagerUnderTest {
 public:
  iFileManager& files() override { return host_.files; }
  [[nodiscard]] std::string folder() const override { return "/projects"; }

 private:
  FakeHost host_;
};

std::unique_ptr<FileManagerUnderTest> make() { return std::make_unique<FakeFilesUnderTest>(); }

}  // namespace

INSTANTIATE_TEST_SUITE_P(Fake, FileManagerContract, testing::Values(&make));
