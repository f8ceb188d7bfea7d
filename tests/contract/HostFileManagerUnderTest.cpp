#include "station/os/HostFileManager.h"
#include "tests/contract/FileManagerContract.h"
#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

class HostFileManagerUnderTest : public FileManagerUnderTest {
 public:
  iFileManager& files() override { return files_; }
  [[nodiscard]] std::string folder() const override { return folder_.path(); }

 private:
  ScratchFolder folder_;
  HostFileManager files_;
};

std::unique_ptr<FileManagerUnderTest> make() {
  return std::make_unique<HostFileManagerUnderTest>();
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Host, FileManagerContract, testing::Values(&make));
