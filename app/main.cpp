#include "app/StationProgram.h"

int main(int argc, char** argv) { return runKvStation(argc, argv); }
