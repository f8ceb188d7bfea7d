#include "tools/capture/CaptureSource.h"

namespace korvel {

Result<std::unique_ptr<iCaptureSource>> openEar(const Hearing& hearing, CaptureQueue& queue) {
  if (hearing.way == Hearing::Way::eCapture) return capturePackets(hearing, queue);
  auto shared = sharePort(hearing, queue);
  if (shared || shared.error().code != ErrorCode::eHeld) return shared;
  auto captured = capturePackets(hearing, queue);
  if (captured) return captured;
  return Error{captured.error().code,
               "port " + std::to_string(hearing.port) +
                   " is held by a program that does not share it, and " + captured.error().message,
               {}};
}

}  // namespace korvel
