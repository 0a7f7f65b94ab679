#include "platform/printable.h"

#include "platform/files.h"
#include "platform/streams.h"

#include <cstddef>

namespace velk {

std::string printable(const std::string &name) {
    std::string result;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto byte = static_cast<unsigned char>(name[i]);
        const auto next = static_cast<unsigned char>(i + 1 < name.size() ? name[i + 1] : '\0');
        const bool of_two = byte == 0xC2 && next >= 0x80 && next < 0xA0;
        result += byte < ' ' || byte == 0x7F || of_two ? '?' : name[i];
        i += of_two;
    }
    return result;
}

void put_message(const std::string &text) {
    std::int64_t put = 0;
    for (std::size_t done = 0; done < text.size(); done += static_cast<std::size_t>(put)) {
        put = write_some(kStandardError, text.data() + done, text.size() - done);
        if (put <= 0) return;
    }
}

} // namespace velk
