#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "xpon/ipc/file_events.hpp"

namespace xpon::ipc {

/// Remembers each module's last answer among the messages that pass.
class LastAnswers {
  public:
    /// How many modules are remembered; beyond that the oldest answer is forgotten.
    static constexpr std::size_t capacity = 1024;
    static_assert(capacity * sizeof(LastAnswer) <= max_payload_size);

    /// Takes a frame that passed the bus at `time` (milliseconds since the epoch). Returns the report if the
    /// frame asks for one.
    std::optional<std::vector<std::byte>> take(std::span<std::byte const> frame, std::uint64_t time);

  private:
    void remember(LastAnswer const& answer);
    std::vector<std::byte> report(LastAnswersQuery const& query, std::uint16_t event) const;

    std::map<std::uint32_t, LastAnswer> answers; // by module
    std::set<std::uint32_t> exact; // modules that say what they know; other answers do not count
};

} // namespace xpon::ipc
