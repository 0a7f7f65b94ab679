#include "random_access.h"

#include "failure.h"

#include <algorithm>

using namespace velk;

namespace {

std::int64_t read_at(void *user, std::uint64_t offset, void *buffer, std::size_t size) {
    const Input &input = *static_cast<const Input *>(user);
    return read_some_at(input.fd, input.start + offset, buffer, size);
}

bool write_whole(const Output &output, const std::uint8_t *bytes, std::size_t size) {
    std::int64_t put = 0;
    for (std::size_t done = 0; done < size; done += static_cast<std::size_t>(put)) {
        put = write_some(output.fd, bytes + done, size - done);
        if (put <= 0) return false;
    }
    return true;
}

// After a range that goes beyond the original, which one without a length may.
Status check_end(const Archive &archive) {
    const Options &o = archive.options;
    const std::uint64_t end = archive.told.size;
    if (o.range_length == UINT64_MAX && o.range_offset <= end) return kSuccess;
    return warning(archive.input.name, "the original ends at " + std::to_string(end) + " bytes");
}

} // namespace

velk_status open_reader(Archive &archive) {
    velk_reader *reader;
    // The callback only looks at the input.
    const velk_status status =
        velk_reader_open(&reader, &archive.options.library, read_at,
                         const_cast<Input *>(&archive.input), archive.input.size, &archive.told);
    archive.reader.reset(reader);
    return status;
}

Status report(const Archive &archive, velk_status status) {
    // Of an archive that was opened, it tells of blocks that are shorter than the others.
    if (status == VELK_ERROR_FORMAT && archive.reader != nullptr)
        return error(archive.input.name,
                     "has blocks of several sizes, which must be restored from the start");
    std::uint8_t header[VELK_HEADER_SIZE];
    if (status == VELK_ERROR_MEMORY && archive.options.library.memory_limit != 0 &&
        read_some_at(archive.input.fd, archive.input.start, header, sizeof header) ==
            static_cast<std::int64_t>(sizeof header))
        return report_limit(archive.input, archive.options.library, 0, header);
    return report(archive.input, status, archive.told, archive.reader.get());
}

Status restore_range(const Input &input, const Output &output, const Options &options) {
    if (!input.regular())
        return error(input.name, "is no file, of which alone a range can be read");
    Archive archive{input, options};
    const velk_status status = open_reader(archive);
    if (status != VELK_OK) return report(archive, status);
    std::vector<std::uint8_t> buffer(std::size_t{1} << 18);
    std::uint64_t left = options.range_length, offset = options.range_offset;
    for (std::size_t got; left != 0; left -= got, offset += got) {
        const std::size_t wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size()));
        const velk_status answer =
            velk_reader_read(archive.reader.get(), offset, buffer.data(), wanted, &got);
        if (!write_whole(output, buffer.data(), got))
            return error(output.name, "can't be written: " + errno_text());
        if (answer != VELK_OK) return report(archive, answer);
        if (got != wanted) return check_end(archive);
    }
    return kSuccess;
}
