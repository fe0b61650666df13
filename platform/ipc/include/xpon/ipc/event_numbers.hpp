#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>

namespace xpon::ipc {

// Every event number that this system uses on the message bus. A program of your own takes others. The README
// of this library says who sends what.

/// For the service launcher (xpon/service/service_launcher.hpp), whatever the payload: the redundancy role
/// may have changed.
inline constexpr std::uint16_t master_change_event = 12100;
/// For the service launcher, whatever the payload: compare the configuration with the other controller.
inline constexpr std::uint16_t sync_event = 12101;

// Their payloads are in xpon/ipc/file_events.hpp.

/// A module's file was rewritten and should be read again. Payload: FileChange.
inline constexpr std::uint16_t file_changed_event = 12500;
/// A module's answer after it has read its file, to everybody. Payload: FileAnswer.
inline constexpr std::uint16_t file_changed_reply = 12501;
/// Asks the broker for the last answer of every module. The header's `reply` names the event of the broker's
/// message, usually `last_answers_reply`. Payload: LastAnswersQuery.
inline constexpr std::uint16_t last_answers_query = 12502;
/// The broker's message to the address in the query. Payload: any number of LastAnswer, ordered by module.
inline constexpr std::uint16_t last_answers_reply = 12503;

/// An endpoint receives a message with this event and no payload from itself after a connection to the broker
/// is established in both directions. It may have missed earlier messages; from now on it receives all. A
/// program that reloads on notification must therefore reload on this event too. The event may come more than
/// once.
inline constexpr std::uint16_t connected_event = 12504;
/// From an endpoint to itself: everything that it sent up to this number has passed the broker. `receive`
/// does not return it. Payload: the number, 8 bytes.
inline constexpr std::uint16_t confirmation_event = 12505;

/// From a module, to everybody, right before each of its answers: which state of the file the answer is about. A
/// module may leave it out. Payload: FileKnown.
inline constexpr std::uint16_t file_known_event = 12506;

// A new number goes into this list too: two events with one number do not compile.
inline constexpr std::array every_event{
    master_change_event, sync_event,      file_changed_event, file_changed_reply, last_answers_query,
    last_answers_reply,  connected_event, confirmation_event, file_known_event,
};
static_assert(std::ranges::adjacent_find(every_event, std::ranges::greater_equal{}) == every_event.end());

} // namespace xpon::ipc
