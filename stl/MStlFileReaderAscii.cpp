#include "MStlFacetLists.h"
#include "MStlFileTriangleAscii.h"
#include "MStlTextScan.h"

#include <KelSDK/Common/Progress.h>
#include <KelSDK/Triangles/IO/MStlFileReaderAscii.h>

#include <algorithm>
#include <cstring>
#include <istream>
#include <limits>

namespace KelSDK::Triangles::IO
{
namespace
{
// Bytes fetched from the stream buffer with one sgetn.
constexpr std::size_t kChunkSize = std::size_t(1) << 20;
// Assumed size in bytes of one ASCII facet, for the progress maximum.
constexpr uint64_t kBytesPerFacet = 206;
// Bytes per facet assumed for the first reservation (on the short side of real files).
constexpr uint64_t kReserveBytesPerFacet = 160;

// Whitespace-separated tokens taken straight from the stream buffer through a large buffer of our
// own. It behaves like operator>> into a string: a token ends before a blank (which stays unread)
// or at the end of the input (which then counts as reached); a token that crosses a refill is moved
// to the front of the buffer and completed. Positions are the stream's logical positions, so that a
// seek backwards works, inside the buffer or, when the data has been dropped, on the stream itself.
class BufferedTokens
{
public:
    // remaining: the bytes the stream still holds, when known; a small input gets a small buffer.
    BufferedTokens(std::istream& stream, uint64_t remaining)
        : stream_(stream), source_(stream.rdbuf()),
          capacity_(
              static_cast<std::size_t>(std::min<uint64_t>(std::max<uint64_t>(remaining, 4096), kChunkSize))),
          buffer_(new char[capacity_ + 1 + Detail::kScanPadding]())
    {
        failed_ = source_ == nullptr || !stream.good();
        handBack_ = !failed_;
        if (!failed_)
        {
            const std::streamoff start = source_->pubseekoff(0, std::ios::cur, std::ios::in);
            seekable_ = start >= 0;
            origin_ = seekable_ ? static_cast<uint64_t>(start) : 0;
        }
    }
    BufferedTokens(const BufferedTokens&) = delete;
    BufferedTokens& operator=(const BufferedTokens&) = delete;

    // Hands the stream back positioned just after the last token consumed, with its end-of-file and
    // failure flags set the way token-by-token reading would have left them.
    ~BufferedTokens()
    {
        if (!handBack_)
            return;
        try
        {
            if (seekable_ && !failed_)
                source_->pubseekpos(static_cast<std::streamoff>(Tell()), std::ios::in);
            std::ios::iostate state = std::ios::goodbit;
            if (atEnd_)
                state |= std::ios::eofbit;
            if (failed_)
                state |= std::ios::failbit;
            if (state != std::ios::goodbit)
                stream_.setstate(state);
        }
        catch (...)
        {
            // The stream was asked to throw on these flags; the read itself is over.
        }
    }

    // The next token; false (and the end marked as reached) when only blanks or nothing remain.
    // The byte after the buffered data is a stop mark for the scanning loops: a non-blank while
    // blanks are skipped, a blank while a token is scanned, so that each loop tests one byte per step.
    bool Next(std::string_view& token)
    {
        if (failed_)
            return false;
        char* const data = buffer_.get();
        for (;;)
        {
            data[end_] = 'x';
            cursor_ = static_cast<std::size_t>(Detail::SkipBlanks(data + cursor_) - data);
            if (cursor_ < end_)
                break;
            if (_Refill(cursor_) == 0)
            {
                atEnd_ = true;
                return false;
            }
        }
        std::size_t start = cursor_;
        for (;;)
        {
            char* const text = buffer_.get();
            text[end_] = ' ';
            cursor_ = static_cast<std::size_t>(Detail::SkipToken(text + cursor_) - text);
            if (cursor_ < end_)
                break;
            // The token runs to the end of the buffered data: keep it and fetch more behind it.
            const std::size_t kept = cursor_ - start;
            const std::size_t got = _Refill(start);
            start = 0;
            cursor_ = kept;
            if (got == 0)
            {
                atEnd_ = true;
                break;
            }
        }
        token = std::string_view(buffer_.get() + start, cursor_ - start);
        return true;
    }
    // A read has reached the end of the input.
    bool AtEnd() const { return atEnd_; }
    // Neither the end reached nor a failure (the stream's good()).
    bool Good() const { return !atEnd_ && !failed_; }
    // The logical position just after what has been consumed.
    uint64_t Tell() const { return origin_ + cursor_; }
    // Moves back (or forward) to a logical position; a position outside the buffered bytes needs a
    // seekable stream, and a failed seek fails the input like a failed seekg.
    void Seek(uint64_t position)
    {
        atEnd_ = false;
        if (failed_)
            return;
        if (position >= origin_ && position - origin_ <= end_)
        {
            cursor_ = static_cast<std::size_t>(position - origin_);
            return;
        }
        if (!seekable_ || source_->pubseekpos(static_cast<std::streamoff>(position), std::ios::in) !=
                              std::streampos(static_cast<std::streamoff>(position)))
        {
            failed_ = true;
            return;
        }
        origin_ = position;
        cursor_ = end_ = 0;
    }

private:
    // Drops the bytes before keepFrom, moves the rest to the front and appends what the stream
    // delivers; returns the number of bytes appended (0 at the end of the input).
    std::size_t _Refill(std::size_t keepFrom)
    {
        const std::size_t kept = end_ - keepFrom;
        if (kept != 0 && keepFrom != 0)
            std::memmove(buffer_.get(), buffer_.get() + keepFrom, kept);
        origin_ += keepFrom;
        cursor_ -= std::min(cursor_, keepFrom);
        end_ = kept;
        if (end_ == capacity_)
        {
            // One token fills the whole buffer: grow it, in proportion to the bytes already read.
            std::unique_ptr<char[]> larger(new char[capacity_ * 2 + 1 + Detail::kScanPadding]());
            std::memcpy(larger.get(), buffer_.get(), end_);
            buffer_ = std::move(larger);
            capacity_ *= 2;
        }
        std::streamsize got = 0;
        try
        {
            got = source_->sgetn(buffer_.get() + end_, static_cast<std::streamsize>(capacity_ - end_));
        }
        catch (...)
        {
            failed_ = true;
            got = 0;
        }
        if (got <= 0)
            return 0;
        end_ += static_cast<std::size_t>(got);
        return static_cast<std::size_t>(got);
    }

    std::istream& stream_;
    std::streambuf* source_;
    std::size_t capacity_;
    std::unique_ptr<char[]> buffer_;
    std::size_t cursor_ = 0;
    std::size_t end_ = 0;
    uint64_t origin_ = 0; // logical stream position of buffer_[0]
    bool seekable_ = false;
    bool handBack_ = false; // the stream was good at the start, so its position and flags are ours to set
    bool atEnd_ = false;
    bool failed_ = false;
};

// The total size of the stream (its end position) without disturbing the stream's flags; all ones
// when the stream cannot tell. remaining receives the bytes after the current position.
uint64_t MeasureStream(std::istream& stream, uint64_t& remaining)
{
    std::streambuf* source = stream.rdbuf();
    if (source == nullptr || !stream.good())
        return std::numeric_limits<uint64_t>::max();
    const std::streamoff here = source->pubseekoff(0, std::ios::cur, std::ios::in);
    if (here < 0)
        return std::numeric_limits<uint64_t>::max();
    const std::streamoff end = source->pubseekoff(0, std::ios::end, std::ios::in);
    source->pubseekpos(here, std::ios::in);
    if (end < 0)
        return std::numeric_limits<uint64_t>::max();
    remaining = end > here ? static_cast<uint64_t>(end - here) : 0;
    return static_cast<uint64_t>(end);
}

// Finds the next "solid" keyword and the solid's name. A solid whose next token is "facet" has no
// name: the input is wound back so that the facet reader sees "facet" again, and the current name
// stays as it was (a second unnamed solid thus repeats the name of the solid before it).
bool FindNextSolid(BufferedTokens& tokens, std::string& currentName)
{
    if (!tokens.Good())
        return false;
    std::string_view token;
    do
    {
        if (!tokens.Next(token))
            return false;
    } while (!Detail::IsKeyword(token, "solid"));

    const uint64_t afterSolid = tokens.Tell();
    if (!tokens.Next(token))
        token = std::string_view();
    if (Detail::IsKeyword(token, "facet"))
        tokens.Seek(afterSolid);
    else
        currentName.assign(token.data(), token.size());
    return true;
}
} // namespace

MStlFileReaderAscii::MStlFileReaderAscii(std::istream& stream) : stream_(stream) {}

MStlFileReaderAscii::EReturnCode
MStlFileReaderAscii::Read(std::vector<std::vector<MStlFileTriangle>>& facets, std::vector<std::string>& names,
                          std::shared_ptr<KelSDK::Common::IProgressDelegate> progress)
{
    Detail::ListSink sink(facets);
    return _Read(sink, names, std::move(progress));
}

MStlFileReaderAscii::EReturnCode MStlFileReaderAscii::_Read(Detail::TextFacetSink& sink,
                                                          std::vector<std::string>& names,
                                                          std::shared_ptr<KelSDK::Common::IProgressDelegate> progress)
{
    uint64_t remaining = std::numeric_limits<uint64_t>::max();
    const uint64_t size = MeasureStream(stream_, remaining);
    const uint64_t expected = size == std::numeric_limits<uint64_t>::max() ? size : size / kBytesPerFacet;
    KelSDK::Common::IncrementalProgressReporter reporter(
        progress, "KelSDK.Triangles.Data.MStlFileReader._ReadAllTriangles", expected, false);

    BufferedTokens tokens(stream_, remaining);
    const bool keepNormals = sink.KeepsNormals();
    std::string currentName;
    bool foundSolid = false;
    bool reserved = false;
    while (FindNextSolid(tokens, currentName))
    {
        foundSolid = true;
        names.push_back(currentName);
        const size_t solid = sink.AddSolid();
        if (!reserved && size != std::numeric_limits<uint64_t>::max() && size > tokens.Tell())
        {
            // The first solid usually holds the whole file: reserve once from the bytes that remain.
            // Writers use 170 to 260 bytes per facet; 160 keeps the list from growing (and copying)
            // in the common case, and reserved pages that are never touched cost no memory.
            sink.Reserve(solid, (size - tokens.Tell()) / kReserveBytesPerFacet);
            reserved = true;
        }
        // One scratch record for all facets. A facet that is appended has had all nine corner
        // coordinates written, and the attribute is never touched, so only the normal (kept as it is
        // when "normal" is missing) needs the fresh record's zero before each facet.
        MStlFileTriangle facet;
        for (;;)
        {
            ++reporter;
            facet.SetNormal(MStlFileTriangle::Point());
            if (!tokens.Good() || !(keepNormals ? Detail::ParseAsciiFacet<true>(tokens, facet, currentName)
                                                : Detail::ParseAsciiFacet<false>(tokens, facet, currentName)))
                break;
            sink.Append(solid, facet);
        }
    }
    return foundSolid ? Success : NoSolidFound;
}
} // namespace KelSDK::Triangles::IO
