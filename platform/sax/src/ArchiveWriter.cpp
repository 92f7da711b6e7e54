#include "ArchiveWriter.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <zip.h>

namespace KelSAX::Detail
{
namespace
{
// A libzip source over one EntryData that says how its bytes are compressed, so that libzip
// copies them into the archive unchanged.
struct EntrySource
{
    const EntryData* entry;
    size_t position = 0;
};

zip_int64_t EntryCallback(void* state, void* data, zip_uint64_t length, zip_source_cmd_t command)
{
    auto* source = static_cast<EntrySource*>(state);
    const EntryData& entry = *source->entry;
    switch (command)
    {
    case ZIP_SOURCE_OPEN:
        source->position = 0;
        return 0;
    case ZIP_SOURCE_READ:
    {
        const size_t n =
            static_cast<size_t>(std::min<zip_uint64_t>(length, entry.bytes.size() - source->position));
        if (n != 0)
            std::memcpy(data, entry.bytes.data() + source->position, n);
        source->position += n;
        return static_cast<zip_int64_t>(n);
    }
    case ZIP_SOURCE_CLOSE:
        return 0;
    case ZIP_SOURCE_STAT:
    {
        auto* st = static_cast<zip_stat_t*>(data);
        zip_stat_init(st);
        st->valid = ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD | ZIP_STAT_CRC;
        st->size = entry.size;
        st->comp_size = entry.bytes.size();
        st->comp_method = entry.deflated ? ZIP_CM_DEFLATE : ZIP_CM_STORE;
        st->crc = entry.crc;
        return sizeof(zip_stat_t);
    }
    case ZIP_SOURCE_ERROR:
        return zip_error_to_data(nullptr, data, length);
    case ZIP_SOURCE_FREE:
        delete source;
        return 0;
    case ZIP_SOURCE_SUPPORTS:
        return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                              ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
    default:
        return -1;
    }
}

std::string ZipMessage(zip_error_t* error)
{
    return zip_error_strerror(error);
}
} // namespace

bool BuildArchive(const std::vector<std::pair<std::string, const EntryData*>>& entries,
                  std::vector<uint8_t>& out, std::string& error)
{
    zip_error_t zerror;
    zip_error_init(&zerror);
    zip_source_t* buffer = zip_source_buffer_create(nullptr, 0, 0, &zerror);
    if (buffer == nullptr)
    {
        error = "cannot start the archive: " + ZipMessage(&zerror);
        zip_error_fini(&zerror);
        return false;
    }
    std::unique_ptr<zip_source_t, void (*)(zip_source_t*)> keep(buffer, zip_source_free);
    zip_source_keep(buffer);
    zip_t* archive = zip_open_from_source(buffer, ZIP_TRUNCATE, &zerror);
    if (archive == nullptr)
    {
        error = "cannot start the archive: " + ZipMessage(&zerror);
        zip_error_fini(&zerror);
        return false;
    }
    for (const auto& [name, entry] : entries)
    {
        auto* state = new EntrySource{entry};
        zip_source_t* source = zip_source_function(archive, EntryCallback, state);
        if (source == nullptr)
        {
            delete state;
            error = "cannot add entry '" + name + "': " + zip_strerror(archive);
            zip_discard(archive);
            return false;
        }
        const zip_int64_t index = zip_file_add(archive, name.c_str(), source, ZIP_FL_ENC_UTF_8);
        if (index < 0)
        {
            zip_source_free(source);
            error = "cannot add entry '" + name + "': " + zip_strerror(archive);
            zip_discard(archive);
            return false;
        }
        // The data are final: deflated entries are copied as they are, stored ones stay stored.
        zip_set_file_compression(archive, static_cast<zip_uint64_t>(index),
                                 entry->deflated ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 0);
    }
    if (zip_close(archive) != 0)
    {
        error = std::string("cannot write the archive: ") + zip_strerror(archive);
        zip_discard(archive);
        return false;
    }
    zip_stat_t st;
    if (zip_source_stat(buffer, &st) != 0 || (st.valid & ZIP_STAT_SIZE) == 0 || zip_source_open(buffer) != 0)
    {
        error = "cannot read back the archive built in memory";
        return false;
    }
    out.resize(static_cast<size_t>(st.size));
    const zip_int64_t got = out.empty() ? 0 : zip_source_read(buffer, out.data(), out.size());
    zip_source_close(buffer);
    if (got < 0 || static_cast<zip_uint64_t>(got) != st.size)
    {
        error = "cannot read back the archive built in memory";
        return false;
    }
    return true;
}
} // namespace KelSAX::Detail
