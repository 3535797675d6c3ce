#pragma once

#include <iostream>
#include <sstream>

namespace testsupport {

template <typename Body>
std::string captureStdout(Body body) {
  std::ostringstream captured;
  std::streambuf* previous = std::cout.rdbuf(captured.rdbuf());
  try {
    body();
  } catch (...) {
    std::cout.rdbuf(previous);
    throw;
  }
  std::cout.rdbuf(previous);
  return captured.str();
}

}  // namespace testsupport
