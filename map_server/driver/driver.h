// The program's entry: command line, mode dispatch and exit status.
#pragma once

namespace vmp {

// Runs the program on its command line and returns the exit status.
int RunDriver(int argc, char** argv);

}  // namespace vmp
