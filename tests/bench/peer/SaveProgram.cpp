// What saving an edit costs with its versions kept, beside the same write without.
//
// usage: PROGRAM FOLDER ROUNDS
//
// Prints for each round the nanoseconds of the one and of the other.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "station/base/StationSettings.h"
#include "station/keep/VersionFolder.h"
#include "station/os/SharedFiles.h"

using namespace korvel;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kEditSize = 100'000;

/// The text of a round's version: as long as the others, and not the same.
std::string textOf(int round) {
  std::string text(kEditSize, 'x');
  const std::string number = std::to_string(round);
  return text.replace(0, number.size(), number);
}

template <typename Work>
double nanoseconds(const Work& work) {
  const auto start = Clock::now();
  if (!work()) std::exit(1);
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  installSettings({});
  const std::string folder = argv[1];
  SavedFile kept(folder + "/E1.otio");
  if (!writeAtomically(kept.path(), textOf(0))) return 1;
  kept.note(textOf(0), 1);
  for (int round = 1; round <= std::atoi(argv[2]); ++round) {
    const std::string text = textOf(round);
    const double keeping =
        nanoseconds([&] { return kept.replace(text, round + 1, SavedFile::History::eRequired); });
    const double plain = nanoseconds([&] { return writeAtomically(folder + "/E2.otio", text); });
    std::printf("%.0f %.0f\n", keeping, plain);
  }
}
