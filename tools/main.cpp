#include "tools/InstallerTool.h"

int main(int argc, char** argv) { return bundletool::runInstallerTool(argc, argv); }
