// Reads the file of module 9 (SNMP), waits until it is told that the file was rewritten, reads it again,
// answers and ends. Built outside of this project against log-config-dev.
#include <iostream>

#include <poll.h>

#include "core/log.hpp"
#include "xpon/ipc/file_events.hpp"
#include "xpon/ipc/zmq_ipc.hpp"
#include "xpon/logger/logger.hpp"

namespace ipc = xpon::ipc;

int main() {
    constexpr ipc::FileChange mine{.module = 9};
    auto const context =
        xpon::logger::Logger::create_context("/etc/zlog_modules_config/SNMP.conf", "SNMP_IPC", 0);
    xpon::logger::Logger logger{"SNMP"};
    auto const bus = ipc::make_zmq_ipc(ipc::any_address, "application");
    for (;;) {
        for (auto message = bus->receive(); message.value(); message = bus->receive()) {
            auto const& [header, payload] = *message.value();
            if (header.event == ipc::connected_event) {
                std::cout << "listening" << std::endl;
            } else if (header == ipc::file_changed_header &&
                       ipc::record_in<ipc::FileChange>(payload) == mine) {
                bool const read = context.value()->reload().has_value();
                xpon::core::log(logger, xpon::core::LogLevel{0}, "application: debug level {}", read);
                ipc::FileAnswer const answer{.module = mine.module, .status = read ? 0U : 5U};
                auto const sent =
                    bus->send({ipc::everybody, header.reply, 0}, ipc::payload_of(answer)).has_value();
                return sent ? 0 : 1;
            }
        }
        pollfd waiting{.fd = bus->receive_fd(), .events = POLLIN, .revents = 0};
        poll(&waiting, 1, -1);
    }
}
