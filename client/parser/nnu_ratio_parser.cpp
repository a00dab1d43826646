// Load of an accelerator core.
#include "nnu_ratio.h"

#include "text_reader.h"

#include <exception>
#include <iostream>
#include <locale>
#include <sstream>

int nnu_ratio_parser::parse_nnu_ratio(unsigned char* msg) {
    return parse_nnu_msg(std::string(payload_text(msg)));
}

int nnu_ratio_parser::parse_nnu_msg(const std::string& msg) {
    try {
        std::istringstream lines(msg);
        for (std::string line; std::getline(lines, line);) {
            // A stream reads the number as it should be read, once it has the classic locale: that
            // of the front end may have a decimal comma.
            std::istringstream number(line);
            number.imbue(std::locale::classic());
            number >> nnu_rat;
        }
        return 1;
    } catch (const std::exception& e) {
        std::cout << "parse_nnu failed!" << e.what() << std::endl;
        return 0;
    }
}
