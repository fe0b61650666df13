// Frames as they come off the message bus, one after the other: the first byte of each part gives its length.
#include <algorithm>
#include <tuple>

#include "broker/last_answers.hpp"
#include "fuzz/fuzz.hpp"
#include "xpon/ipc/message.hpp"
#include "xpon/ipc/payload.hpp"

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace xpon::ipc;
    using xpon::fuzz::require;
    LastAnswers answers;
    auto rest = std::as_bytes(std::span{data, size});
    for (std::uint64_t time = 1; !rest.empty(); ++time) {
        auto const length = std::min(static_cast<std::size_t>(rest.front()), rest.size() - 1);
        auto const frame = rest.subspan(1, length);
        rest = rest.subspan(1 + length);
        if (auto const message = decode(frame)) {
            auto const again = encode(message->header, message->payload);
            require(std::ranges::equal(again, frame), "a frame is its message and nothing else");
            std::ignore = record_in<FileAnswer>(message->payload);
            std::ignore = records_in<LastAnswer>(message->payload);
        } else {
            require(frame.size() < sizeof(Header), "only what is shorter than a header is no message");
        }
        if (auto const reply = answers.take(frame, time)) {
            auto const report = decode(*reply);
            require(report.has_value() && records_in<LastAnswer>(report->payload).has_value(),
                    "a report can be read");
            require(reply->size() <= max_frame_size, "a report can be sent");
        }
    }
    return 0;
}
