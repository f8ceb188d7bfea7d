#include "app/program/StationProgram.h"

#ifdef KV_HAS_WINDOW
#include "app/window/StationWindow.h"
#endif

using namespace korvel;

int main(int argc, char** argv) {
#ifdef KV_HAS_WINDOW
  return runKvStation(argc, argv, makeStationWindow);
#else
  return runKvStation(argc, argv);
#endif
}
