#include "ArchiveReader.h"

#include <KelSAX/MSAXError.h>
#include <unordered_map>
#include <zip.h>

namespace KelSAX::Detail
{
namespace
{
// Deflate cannot expand data more than about 1032 times; stored data not at all.
constexpr uint64_t kDeflateRatio = 1032;
constexpr uint64_t kDeflateSlack = 1024;

[[noreturn]] void Refuse(const std::string& message)
{
    throw MSAXError::MGenericRead("damaged archive: " + message);
}
} // namespace

struct ArchiveReader::Zip
{
    zip_t* archive = nullptr;
    std::unordered_map<std::string, std::pair<zip_uint64_t, uint64_t>> entries; // name -> index, size
    ~Zip()
    {
        if (archive != nullptr)
            zip_discard(archive);
    }
};

ArchiveReader::ArchiveReader(const uint8_t* data, size_t size, uint64_t maxExpansion, uint64_t allowance)
    : zip_(std::make_unique<Zip>())
{
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_buffer_create(data, size, 0, &error);
    if (source == nullptr)
    {
        const std::string message = zip_error_strerror(&error);
        zip_error_fini(&error);
        Refuse(message);
    }
    zip_->archive = zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, &error);
    if (zip_->archive == nullptr)
    {
        zip_source_free(source);
        const std::string message = zip_error_strerror(&error);
        zip_error_fini(&error);
        Refuse(message);
    }
    zip_error_fini(&error);

    const zip_int64_t count = zip_get_num_entries(zip_->archive, 0);
    uint64_t compressed = 0;
    uint64_t declared = 0;
    const uint64_t bound =
        size > (UINT64_MAX - allowance) / maxExpansion ? UINT64_MAX : size * maxExpansion + allowance;
    for (zip_int64_t i = 0; i < count; ++i)
    {
        zip_stat_t st;
        if (zip_stat_index(zip_->archive, static_cast<zip_uint64_t>(i), ZIP_FL_ENC_RAW, &st) != 0)
            Refuse("entry " + std::to_string(i) + " cannot be read: " + zip_strerror(zip_->archive));
        const zip_uint64_t needed = ZIP_STAT_NAME | ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD;
        if ((st.valid & needed) != needed)
            Refuse("entry " + std::to_string(i) + " lacks its sizes");
        const std::string name = st.name;
        if ((st.valid & ZIP_STAT_ENCRYPTION_METHOD) != 0 && st.encryption_method != ZIP_EM_NONE)
            Refuse("entry '" + name + "' is encrypted");
        if (st.comp_method != ZIP_CM_STORE && st.comp_method != ZIP_CM_DEFLATE)
            Refuse("entry '" + name + "' uses compression method " + std::to_string(st.comp_method) +
                   " (only stored and deflated entries are read)");
        const uint64_t most = st.comp_method == ZIP_CM_STORE ? st.comp_size
                              : st.comp_size > (UINT64_MAX - kDeflateSlack) / kDeflateRatio
                                  ? UINT64_MAX
                                  : st.comp_size * kDeflateRatio + kDeflateSlack;
        if (st.size > most)
            Refuse("entry '" + name + "' declares " + std::to_string(st.size) + " bytes, more than its " +
                   std::to_string(st.comp_size) + " compressed bytes can hold");
        if (st.comp_size > size - std::min<uint64_t>(compressed, size))
            Refuse("the entries' compressed data overlap or exceed the archive");
        compressed += st.comp_size;
        if (st.size > bound - std::min(declared, bound))
            Refuse("the entries would expand to more than " + std::to_string(bound) + " bytes (" +
                   std::to_string(maxExpansion) + " times the archive size plus " +
                   std::to_string(allowance >> 20) + " MiB): a decompression bomb");
        declared += st.size;
        zip_->entries.emplace(name, std::make_pair(static_cast<zip_uint64_t>(i), uint64_t(st.size)));
    }
    budget_ = bound;
}

ArchiveReader::~ArchiveReader() = default;

bool ArchiveReader::EntrySize(const std::string& name, uint64_t& size) const
{
    const auto it = zip_->entries.find(name);
    if (it == zip_->entries.end())
        return false;
    size = it->second.second;
    return true;
}

void ArchiveReader::ReadEntry(const std::string& name, uint8_t* out, size_t bytes)
{
    const auto it = zip_->entries.find(name);
    if (it == zip_->entries.end())
        Refuse("no entry '" + name + "'");
    if (it->second.second != bytes)
        Refuse("entry '" + name + "' holds " + std::to_string(it->second.second) + " bytes, not " +
               std::to_string(bytes));
    if (bytes > budget_)
        Refuse("reading entry '" + name + "' again would exceed the decompression bound");
    budget_ -= bytes;
    std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> file(
        zip_fopen_index(zip_->archive, it->second.first, 0), zip_fclose);
    if (!file)
        Refuse("entry '" + name + "' cannot be opened: " + zip_strerror(zip_->archive));
    size_t done = 0;
    while (done < bytes)
    {
        const zip_int64_t got = zip_fread(file.get(), out + done, bytes - done);
        if (got < 0)
            Refuse("entry '" + name + "': " + zip_file_strerror(file.get()));
        if (got == 0)
            Refuse("entry '" + name + "' ends after " + std::to_string(done) + " of its " +
                   std::to_string(bytes) + " bytes");
        done += static_cast<size_t>(got);
    }
    // The end of the data, where libzip checks the checksum.
    uint8_t extra;
    const zip_int64_t more = zip_fread(file.get(), &extra, 1);
    if (more < 0)
        Refuse("entry '" + name + "': " + zip_file_strerror(file.get()));
    if (more != 0)
        Refuse("entry '" + name + "' holds more than its declared " + std::to_string(bytes) + " bytes");
}
} // namespace KelSAX::Detail
