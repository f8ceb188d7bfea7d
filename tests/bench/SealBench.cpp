#include <sodium.h>

#include <array>
#include <memory>
#include <string>

#include "station/seal/Seals.h"
#include "tests/bench/MicroBench.h"

namespace korvel {

namespace {

/// A message of the usual length, and two stations that share a key.
struct SealedPair {
  SealedPair() {
    static_cast<void>(ring.add());
    sender = std::make_unique<Seals>(SealPolicy::eRequire, ring, 1);
    receiver = std::make_unique<Seals>(SealPolicy::eRequire, ring, 2);
  }

  KeyRing ring;
  std::unique_ptr<Seals> sender;
  std::unique_ptr<Seals> receiver;
  const std::string text = std::string(120, 'x');
  const std::int64_t now = millisecondsNow();
};

std::unique_ptr<SealedPair> sealedPair;

void sealAndJudge(benchmark::State& state) {
  for (auto _ : state) {
    const std::string datagram = sealedPair->sender->outgoing(sealedPair->text);
    const auto judged = sealedPair->receiver->judge(datagram, sealedPair->now);
    if (judged.verdict != Seals::Verdict::eSealed) return state.SkipWithError("was not sealed");
  }
}

/// The code alone, made once by the sender and once by the receiver.
void makeTwoCodes(benchmark::State& state) {
  const SealKey& key = sealedPair->ring.keys().front();
  const std::string bytes = sealedPair->text + std::string(Seal::kBytes - Seal::kCodeBytes, '\0');
  std::array<unsigned char, Seal::kCodeBytes> code{};
  for (auto _ : state) {
    for (int side = 0; side < 2; ++side) {
      crypto_generichash(code.data(), code.size(),
                         reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                         key.bytes.data(), key.bytes.size());
      benchmark::DoNotOptimize(code);
    }
  }
}

}  // namespace

void addSealPairs(MicroBench& to) {
  to.add({"message sealed and judged", 0, Bound::atMost(2.0), sealAndJudge, makeTwoCodes,
          BenchPair::Clock::eProcessor, [] { sealedPair = std::make_unique<SealedPair>(); },
          [] { sealedPair.reset(); }});
}

}  // namespace korvel
