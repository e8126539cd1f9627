#include "frontend/InstallerProgram.h"

int main(int argc, char** argv) { return frontend::runInstaller(argc, argv); }
