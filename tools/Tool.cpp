#include "tools/Tool.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>

ToolStatus toolProblem(ToolStatus status, const std::string& message) {
  std::cout.flush();
  std::cerr << "kv-share: " << message << '\n';
  return status;
}

bool readInput(const std::string& file, std::string& bytes) {
  std::ifstream opened;
  const bool isStandardInput = file.empty() || file == "-";
  if (!isStandardInput) opened.open(file, std::ios::binary);
  std::istream& input = isStandardInput ? std::cin : opened;
  if (!input) return false;
  bytes.assign(std::istreambuf_iterator<char>(input), {});
  return !input.bad();
}
