#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "xpon/ipc/i_ipc.hpp"

namespace xpon::ipc {

/// The folder of the broker's two sockets, `publish` (peers send) and `subscribe` (peers receive).
inline constexpr char const* default_folder = "/run/xpon/ipc";

/// An endpoint over the broker's sockets in `folder`. The broker may be absent, and may come and go: the
/// connection is made, and made again, in the background. `address` 0xFFFF picks an unused address. `name`
/// says in error messages whose endpoint it is. Throws std::runtime_error naming the reason when the endpoint
/// cannot be made, std::invalid_argument on the address 0xFFFE. No signal is delivered to its threads;
/// destruction waits at most 100 ms for messages that are still on their way.
std::shared_ptr<IIpc> make_zmq_ipc(Address address, std::string const& name,
                                   std::filesystem::path const& folder = default_folder);

} // namespace xpon::ipc
