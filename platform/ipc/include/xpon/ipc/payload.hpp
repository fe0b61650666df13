#pragma once

#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <type_traits>
#include <vector>

namespace xpon::ipc {

/// A record that travels as its own bytes, in the machine's own order: no padding, nothing to construct.
template <class T>
concept Record = std::is_trivially_copyable_v<T> && std::has_unique_object_representations_v<T>;

/// The payload that holds these records one after the other.
template <Record T>
std::vector<std::byte> payload_of_all(std::span<T const> records) {
    auto const bytes = std::as_bytes(records);
    return {bytes.begin(), bytes.end()};
}

/// The payload that holds one record.
template <Record T>
std::vector<std::byte> payload_of(T const& record) {
    return payload_of_all(std::span<T const>{&record, 1});
}

/// The records that a payload holds; nothing if its size is not a multiple of theirs.
template <Record T>
std::optional<std::vector<T>> records_in(std::span<std::byte const> payload) {
    if (payload.size() % sizeof(T) != 0) {
        return std::nullopt;
    }
    std::vector<T> records(payload.size() / sizeof(T));
    if (!payload.empty()) {
        std::memcpy(records.data(), payload.data(), payload.size());
    }
    return records;
}

/// The record that a payload holds; nothing if its size is not exactly that of one.
template <Record T>
std::optional<T> record_in(std::span<std::byte const> payload) {
    if (payload.size() != sizeof(T)) {
        return std::nullopt;
    }
    T record;
    std::memcpy(&record, payload.data(), sizeof(T));
    return record;
}

} // namespace xpon::ipc
