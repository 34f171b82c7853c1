#include "frontend/JobDriver.h"

int main(int argc, char** argv) { return RunTrimora(argc, argv); }
