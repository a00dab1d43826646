// The video-input pipeline: image signal processor (ISP), pyramid scaler (PYM), camera interface
// (CIM) and distortion correction (GDC).
#ifndef MONCL_VIO_INFO_MANAGER_H
#define MONCL_VIO_INFO_MANAGER_H

#include "client.h"
#include "request_handler.h"

#include <initializer_list>
#include <string>

/// Asks for the state and the frame rates of the video pipeline. Queries may come from several
/// threads. A query is several request cycles, and the lock is free between them, so two queries of
/// the same kind at the same time mix their records.
///
/// A query empties what it fills, then asks for each part of it. Queries return 0 or the code of
/// the first cycle that failed, after which nothing more is asked; what came before stays. An
/// answer of several packets ends in -1 unless the connection's `stop_at_last_part` is on.
class MONCL_API vio_info_manager : public ns_req_template::request_handler {
public:
    /// Has no connection: give it one through `client` before the first query.
    vio_info_manager();
    /// Uses @p comm and connects it, even if it is connected already.
    /// @throws const char* "VIO connect to server failed"
    explicit vio_info_manager(std::shared_ptr<client_comm> comm);
    /// Connects to the server at @p ip : @p port.
    /// @throws const char* "VIO connect to server failed"
    vio_info_manager(const std::string& ip, int port);

    /// Contexts and use cases of the ISP, into `isp_parse->info`; all gathered so far is printed to
    /// standard output after each of the two answers.
    int get_isp_info();
    /// Frame rates at the ISP, into `isp_parse->fps`.
    int get_isp_fps();
    /// Frame rates at the camera interface, into `cim_parse->fps`.
    int get_cim_fps();
    /// Frame rates at the pyramid scaler, into `pym_parse->fps`.
    int get_pym_fps();
    /// Output frame rates at the distortion correction, into `gdc_parse->fps`.
    int get_gdc_fps();
    /// Statistics of the pyramid scaler, into `pym_parse->stat`; all gathered so far is printed to
    /// standard output after each of the three answers.
    int get_pym_stat();
    /// The delay report: one line on standard output.
    int get_vio_delay();

    /// Asks for the frame rates of CIM, ISP and PYM and writes them as one table, a row for each
    /// pipe of the CIM and a column for each block instance; a query that fails leaves its cells
    /// out. Leaves @p os left-adjusted.
    /// @return rows written; -1 if @p os is null, which asks nothing
    int sort_all_vio_fps(std::ostream* os);

    std::shared_ptr<isp_parser> isp_parse;
    std::shared_ptr<pym_parser> pym_parse;
    std::shared_ptr<cim_parser> cim_parse;
    std::shared_ptr<gdc_parser> gdc_parse;
    std::shared_ptr<vio_info_parser> vio_parser; ///< stays null: the delay report needs no object

private:
    template<class Records>
    MONCL_LOCAL void empty(Records& records);
    MONCL_LOCAL fps_map copy_of(const fps_map& fps);
    template<class Parser>
    MONCL_LOCAL int ask_each(std::initializer_list<int> sub_commands,
                             const std::shared_ptr<Parser>& parser);
};

namespace ns_req_template {
template<>
int request_handler::handle_request(std::shared_ptr<isp_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<isp_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<pym_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<pym_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<cim_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<cim_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<gdc_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<gdc_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<vio_info_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<vio_info_parser> parser, std::ostream& out);
} // namespace ns_req_template

#endif
