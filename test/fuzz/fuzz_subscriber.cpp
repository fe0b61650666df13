// What a subscriber sends to the broker, in two pieces: the first byte says where the first one ends.
#include <algorithm>

#include "broker/subscriber.hpp"
#include "fuzz/fuzz.hpp"

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using xpon::fuzz::require;
    using xpon::ipc::Subscriber;
    if (size == 0) {
        return 0;
    }
    auto const all = std::as_bytes(std::span{data + 1, size - 1});
    auto const first = std::min<std::size_t>(*data, all.size());
    Subscriber whole;
    Subscriber pieces;
    bool const goes_on = whole.take(all);
    require((pieces.take(all.first(first)) && pieces.take(all.subspan(first))) == goes_on,
            "where the pieces end makes no difference");
    whole.leave();
    std::size_t made = 0;
    std::size_t withdrawn = 0;
    for (auto const& notice : whole.take_notices()) {
        require(notice.size() == 5, "a notice is about an address");
        ++(notice.front() == std::byte{1} ? made : withdrawn);
        require(made >= withdrawn && made - withdrawn <= Subscriber::max_subscriptions,
                "only what was made is withdrawn, and there are never too many");
    }
    require(made == withdrawn, "nothing is left");
    require(!whole.wants(all), "who has left wants nothing");
    return 0;
}
