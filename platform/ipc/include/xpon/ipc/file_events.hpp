#pragma once

#include <cstdint>

#include "xpon/ipc/event_numbers.hpp"
#include "xpon/ipc/message.hpp"
#include "xpon/ipc/payload.hpp"

namespace xpon::ipc {

/// The header of the message that tells everybody that a module's file was rewritten.
inline constexpr Header file_changed_header{everybody, file_changed_event, file_changed_reply};

// The payloads. `payload_of` writes them; `record_in` and `records_in` read them.

struct FileChange {
    std::uint32_t module;

    bool operator==(FileChange const&) const = default;
};
static_assert(sizeof(FileChange) == 4);

struct FileAnswer {
    std::uint32_t module;
    std::uint32_t status; ///< 0, or the errno with which the module failed to use its file

    bool operator==(FileAnswer const&) const = default;
};
static_assert(sizeof(FileAnswer) == 8);

struct FileKnown {
    std::uint32_t module;
    std::uint32_t status;
    /// When the file had last changed, in milliseconds since the epoch, as seen before it was read; 0 if it was
    /// not there.
    std::uint64_t changed;

    bool operator==(FileKnown const&) const = default;
};
static_assert(sizeof(FileKnown) == 16);

struct LastAnswersQuery {
    Address asker; ///< the destination of the broker's message

    bool operator==(LastAnswersQuery const&) const = default;
};
static_assert(sizeof(LastAnswersQuery) == 4);

struct LastAnswer {
    std::uint32_t module;
    std::uint32_t status;
    /// Changes of the file up to this time, in milliseconds since the epoch, are known to the module: the one in
    /// FileKnown; of a module that sends none, when the broker saw the answer.
    std::uint64_t time;

    bool operator==(LastAnswer const&) const = default;
};
static_assert(sizeof(LastAnswer) == 16);

} // namespace xpon::ipc
