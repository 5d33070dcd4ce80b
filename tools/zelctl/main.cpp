// zelctl: the project's client tool. Commands live in ZelctlCommandTable.

#include <iostream>
#include <string>
#include <vector>

#include "ZelctlCommandTable.h"

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    const int status = ZelctlCommandTable::run(args, std::cout, std::cerr);
    std::cout.flush();
    return status;
}
