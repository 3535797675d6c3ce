#include "RIFF/Sorvane.h"

int main(int argc, char** argv) { return sorvane_main(argc, argv); }
