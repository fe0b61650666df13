#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "xpon/ipc/i_ipc.hpp"

namespace xpon::ipc {

/// The folder of the broker's two sockets, `publish` (peers send) and `subscribe` (peers receive).
inline constexpr char const* default_folder = "/run/xpon/ipc";

/// An endpoint that uses the broker's sockets in `folder`. The broker may be absent, and may stop and start
/// at any time; the endpoint connects and reconnects in the background. `address` 0xFFFF picks an unused
/// address. `name` identifies the endpoint in error messages. Throws std::runtime_error with the reason if
/// the endpoint cannot be created, and std::invalid_argument for the address 0xFFFE. Signals are never
/// delivered to its threads. Destruction waits at most 100 ms for unsent messages.
std::shared_ptr<IIpc> make_zmq_ipc(Address address, std::string const& name,
                                   std::filesystem::path const& folder = default_folder);

} // namespace xpon::ipc
