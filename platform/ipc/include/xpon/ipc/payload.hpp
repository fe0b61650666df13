#pragma once

#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <type_traits>
#include <vector>

namespace xpon::ipc {

/// A record that is sent as its own bytes, in the machine's byte order: no padding, no constructor needed.
template <class T>
concept Record = std::is_trivially_copyable_v<T> && std::has_unique_object_representations_v<T>;

/// The payload that contains these records one after the other.
template <Record T>
std::vector<std::byte> payload_of_all(std::span<T const> records) {
    auto const bytes = std::as_bytes(records);
    return {bytes.begin(), bytes.end()};
}

/// The payload that contains one record.
template <Record T>
std::vector<std::byte> payload_of(T const& record) {
    return payload_of_all(std::span<T const>{&record, 1});
}

/// The records in a payload, or nothing if its size is not a multiple of the record size.
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

/// The record in a payload, or nothing if its size is not exactly the record size.
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
