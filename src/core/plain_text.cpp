#include "core/plain_text.hpp"

namespace xpon::core {

std::string without_control_characters(std::string_view text) {
    std::string plain{text};
    std::erase_if(plain, [](char letter) {
        auto const code = static_cast<unsigned char>(letter);
        return code < 0x20 || code == 0x7F;
    });
    return plain;
}

} // namespace xpon::core
