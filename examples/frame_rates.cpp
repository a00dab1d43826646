// Shows each camera pipe's frame rates at the camera interface, then the library's own table.
#include "vio_info_manager.h"

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) try {
    vio_info_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    board.client->stop_at_last_part(true); // long answers come in several parts
    if (board.get_cim_fps() < 0)
        return 1;
    for (const auto& [pipe, rates] : board.cim_parse->fps) {
        std::cout << "pipe " << pipe << ": " << rates->input_fps << " frames/s in, "
                  << rates->output_fps << " out";
        if (rates->output_fps < rates->input_fps)
            std::cout << ", " << rates->input_fps - rates->output_fps << " lost";
        std::cout << "\n";
    }
    return board.sort_all_vio_fps(&std::cout) < 0 ? 1 : 0; // returns the number of rows
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
