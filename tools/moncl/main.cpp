// moncl, the console program.
#include "program.h"

#include <iostream>

int main(int argc, char** argv) {
    return tools::run_program({argv + 1, argv + argc}, std::cout, std::cerr);
}
