// The command-line driver: banner, usage box, argument handling and the
// choice of converter by file extension.
#pragma once

#include <string>

// Prints the banner (star line and program version).
void Header();
// Prints the usage box.
void Usage();
// Converts one input; 1 when a converter ran (whatever it found), 0 when the
// input is missing or its extension is not supported. `result` receives the
// converter's result text.
int sorvane_convert(const std::string& input, const std::string& outputPath, std::string& result);
// The whole program run as `main` performs it; returns the exit status.
int sorvane_main(int argc, const char* const* argv);
