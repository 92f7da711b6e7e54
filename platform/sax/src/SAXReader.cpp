// SAXReader: parses the whole document first (expat builds the element list of Document.h), then
// walks it at the pace of the persist objects, so that ReadInPlace can hand an element to an
// object that lives on its caller's stack.
#include "ArchiveReader.h"
#include "Base64.h"
#include "Document.h"
#include "XmlText.h"

#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/FileIO/MFile.h>

#include <KelSAX/MSAXError.h>
#include <KelSAX/SAXReader.h>
#include <charconv>
#include <cstring>
#include <limits>
#include <unordered_set>

namespace KelSAX
{
namespace
{
const std::string kEmpty;
// The archive entry that holds the document.
const std::string kDocumentEntry = "document.xml";
// Progress: parsing is the first 40 %, the walk over the elements the rest.
constexpr uint64_t kProgressSteps = 1000000;
constexpr uint64_t kParseSteps = 400000;

bool IsArchive(const uint8_t* data, size_t size)
{
    return size >= 4 && data[0] == 'P' && data[1] == 'K' &&
           ((data[2] == 3 && data[3] == 4) || (data[2] == 5 && data[3] == 6));
}

template <typename T> bool ParseInteger(std::string_view text, T& value)
{
    text = Detail::TrimBlanks(text);
    T parsed{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), parsed);
    if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size())
        return false;
    value = parsed;
    return true;
}
} // namespace

class SAXReader::Impl
{
public:
    Impl(SAXReader& self, std::shared_ptr<SAXContexts::ISAXContext> context)
        : self_(self),
          context_(context ? std::move(context) : SAXContextsFactory::CreateSAXContext(eSAXContextPlain))
    {
    }

    void ReadFile(const wchar_t* path, ISAXPersistBase& root)
    {
        if (path == nullptr)
            throw MSAXError::MGenericRead("no file name given");
        KelSDK::FileIO::MFile file;
        const std::string name = KelSDK::Common::StringConversion::NativeToUtf8(path);
        if (!file.OPEN_READ(path))
            throw MSAXError::MGenericRead("cannot open '" + name + "': " + file.GetSystemError().message());
        const int64_t size = file.GetSize();
        if (size < 0 || static_cast<uint64_t>(size) > std::numeric_limits<size_t>::max())
            throw MSAXError::MGenericRead("'" + name + "' is too large to read");
        std::vector<uint8_t> bytes(static_cast<size_t>(size));
        if (!bytes.empty() && !file.READ(bytes.data(), bytes.size()))
            throw MSAXError::MGenericRead("cannot read '" + name + "': " + file.GetSystemError().message());
        Read(std::move(bytes), root);
    }

    void Read(std::vector<uint8_t> bytes, ISAXPersistBase& root)
    {
        Reset();
        input_ = std::move(bytes);
        progress_ = context_->GetProgressDelegate();
        reported_ = 0;
        Report(0);
        const uint8_t* data = input_.data();
        size_t size = input_.size();
        std::vector<uint8_t> xml;
        if (IsArchive(data, size))
        {
            archive_ =
                std::make_unique<Detail::ArchiveReader>(data, size, kMaxExpansion, kExpansionAllowance);
            uint64_t documentSize = 0;
            if (!archive_->EntrySize(kDocumentEntry, documentSize))
                throw MSAXError::MGenericRead("damaged archive: it holds no '" + kDocumentEntry + "'");
            xml.resize(static_cast<size_t>(documentSize));
            archive_->ReadEntry(kDocumentEntry, xml.data(), xml.size());
            data = xml.data();
            size = xml.size();
        }
        Detail::ParseDocument(reinterpret_cast<const char*>(data), size, kMaxDepth, document_,
                              [&](size_t done)
                              { Report(size == 0 ? kParseSteps : done * kParseSteps / size); });
        std::vector<uint8_t>().swap(xml);
        if (!archive_)
            std::vector<uint8_t>().swap(input_);
        if (document_.duplicateId != 0 && RequireUniqueIds())
            throw MSAXError::MGenericRead("id " + std::to_string(document_.duplicateId) +
                                          " is given to a second element (line " +
                                          std::to_string(document_.duplicateLine) + ")");
        current_ = 0;
        document_.nodes[0].flags |= Detail::Node::ReadInPlace;
        Walk(0, root);
        Report(kProgressSteps);
    }

    void EndRead()
    {
        std::vector<ISAXReference*> users;
        users.swap(users_);
        seenUsers_.clear();
        for (ISAXReference* user : users)
            user->ResolveReferences(self_);
    }

    bool ReadInPlace(ISAXPersistBase& persist)
    {
        if (document_.nodes.empty())
            return false;
        Detail::Node& node = document_.nodes[current_];
        if (node.flags & Detail::Node::ReadInPlace)
            return false;
        node.flags |= Detail::Node::ReadInPlace;
        if (node.id != 0 && document_.firstWithId[node.id] == current_)
            objects_[node.id] = &persist;
        Walk(current_, persist);
        return true;
    }

    const std::string& EnclosingTag() const
    {
        if (current_ == 0 || document_.nodes.empty())
            return kEmpty;
        const uint32_t parent = document_.nodes[current_].parent;
        return parent == 0 ? kEmpty : document_.Name(document_.nodes[parent]);
    }

    const std::string& CurrentTag() const
    {
        return current_ == 0 || document_.nodes.empty() ? kEmpty : document_.Name(document_.nodes[current_]);
    }

    std::string_view Text() const
    {
        return document_.nodes.empty() ? std::string_view() : document_.Text(document_.nodes[current_]);
    }

    template <typename T> bool Integer(T& value) { return ParseInteger(Text(), value); }

    bool Double(double& value)
    {
        const std::string_view text = Detail::TrimBlanks(Text());
        double parsed = 0;
        const auto result = std::from_chars(text.data(), text.data() + text.size(), parsed);
        if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size())
            return false;
        value = parsed;
        return true;
    }

    bool Bool(bool& value)
    {
        const std::string_view text = Detail::TrimBlanks(Text());
        if (text == "true" || text == "1")
            value = true;
        else if (text == "false" || text == "0")
            value = false;
        else
            return false;
        return true;
    }

    bool String(std::string& value)
    {
        const std::string_view text = Text();
        if (document_.nodes.empty() || !(document_.nodes[current_].flags & Detail::Node::Base64String))
        {
            value.assign(text.data(), text.size());
            return true;
        }
        uint64_t bytes = 0;
        if (!Detail::Base64DecodedSize(text, bytes))
            throw Damaged("its base64 text has a wrong length");
        std::string decoded(static_cast<size_t>(bytes), '\0');
        if (!Detail::DecodeBase64(text, reinterpret_cast<uint8_t*>(decoded.data()), decoded.size()))
            throw Damaged("its base64 text holds a character outside base64 or misplaced padding");
        value.swap(decoded);
        return true;
    }

    bool BinarySize(uint64_t& bytes) const
    {
        if (document_.nodes.empty() || !(document_.nodes[current_].flags & Detail::Node::HasSize))
            return false;
        bytes = document_.nodes[current_].size;
        return true;
    }

    bool Binary(std::vector<uint8_t>& bytes)
    {
        uint64_t size = 0;
        if (!BinarySize(size))
            return false;
        CheckBinary(size);
        bytes.resize(static_cast<size_t>(size));
        DecodeBinary(bytes.data(), bytes.size());
        return true;
    }

    bool Binary(void* destination, size_t bytes)
    {
        uint64_t size = 0;
        if (!BinarySize(size) || size != bytes || (destination == nullptr && bytes != 0))
            return false;
        CheckBinary(size);
        DecodeBinary(static_cast<uint8_t*>(destination), bytes);
        return true;
    }

    void RegisterUser(ISAXReference* user)
    {
        if (user != nullptr && seenUsers_.insert(user).second)
            users_.push_back(user);
    }

    ISAXReference* Lookup(uint32_t id) const
    {
        const auto it = objects_.find(id);
        return it == objects_.end() ? nullptr : it->second;
    }

    SAXContexts::ISAXContext* Context() { return context_.get(); }

private:
    void Reset()
    {
        document_ = Detail::Document();
        archive_.reset();
        input_.clear();
        objects_.clear();
        users_.clear();
        seenUsers_.clear();
        current_ = 0;
    }

    bool RequireUniqueIds() const
    {
        const auto* database = dynamic_cast<const SAXContexts::ISAXDatabaseContext*>(context_.get());
        return database != nullptr && database->GetRequireUniqueIds();
    }

    // Offers the children of element to persist; see ISAXReader::ReadInPlace.
    void Walk(uint32_t element, ISAXPersistBase& persist)
    {
        const uint32_t end = document_.nodes[element].end;
        uint32_t child = element + 1;
        while (child < end)
        {
            Step(child);
            current_ = child;
            const std::string& name = document_.Name(document_.nodes[child]);
            if (persist.HandleTag(name, self_))
            {
                if (!(document_.nodes[child].flags & Detail::Node::ReadInPlace))
                {
                    document_.nodes[child].flags |= Detail::Node::ReadInPlace;
                    Walk(child, persist);
                }
                current_ = child;
                persist.EndTag(name, self_);
            }
            child = document_.nodes[child].end;
        }
        current_ = element;
    }

    // Progress and cancellation, every 4096 elements.
    void Step(uint32_t node)
    {
        if ((node & 4095) != 0 || !progress_)
            return;
        if (progress_->IsCancelled())
            throw MSAXError::MGenericRead("the read was cancelled");
        Report(kParseSteps + uint64_t(node) * (kProgressSteps - kParseSteps) / document_.nodes.size());
    }

    void Report(uint64_t steps)
    {
        if (!progress_ || steps < reported_)
            return;
        reported_ = steps;
        progress_->SetProgress(double(steps) / double(kProgressSteps));
    }

    MSAXError::MGenericRead Damaged(const std::string& what) const
    {
        const Detail::Node& node = document_.nodes[current_];
        return MSAXError::MGenericRead("the value of '" + document_.Name(node) + "' (line " +
                                       std::to_string(node.line) + ") is damaged: " + what);
    }

    // A binary value's size must be justified by the bytes that hold it before anything is allocated.
    void CheckBinary(uint64_t size) const
    {
        const Detail::Node& node = document_.nodes[current_];
        if (node.entry != 0)
        {
            uint64_t declared = 0;
            if (!archive_)
                throw Damaged("it names an archive entry, but the document is not in an archive");
            const std::string& entry = document_.entries[node.entry - 1];
            if (!archive_->EntrySize(entry, declared))
                throw Damaged("the archive holds no entry '" + entry + "'");
            if (declared != size)
                throw Damaged("entry '" + entry + "' holds " + std::to_string(declared) +
                              " bytes, the element says " + std::to_string(size));
        }
        else
        {
            uint64_t decoded = 0;
            if (!Detail::Base64DecodedSize(Text(), decoded))
                throw Damaged("its base64 text has a wrong length");
            if (decoded != size)
                throw Damaged("its base64 text holds " + std::to_string(decoded) +
                              " bytes, the element says " + std::to_string(size));
        }
        if (size > std::numeric_limits<size_t>::max())
            throw Damaged("it is too large for this machine");
    }

    void DecodeBinary(uint8_t* out, size_t bytes)
    {
        const Detail::Node& node = document_.nodes[current_];
        if (node.entry != 0)
            archive_->ReadEntry(document_.entries[node.entry - 1], out, bytes);
        else if (!Detail::DecodeBase64(Text(), out, bytes))
            throw Damaged("its base64 text holds a character outside base64 or misplaced padding");
    }

    SAXReader& self_;
    std::shared_ptr<SAXContexts::ISAXContext> context_;
    std::shared_ptr<KelSDK::Common::IProgressDelegate> progress_;
    uint64_t reported_ = 0;
    std::vector<uint8_t> input_;
    std::unique_ptr<Detail::ArchiveReader> archive_;
    Detail::Document document_;
    uint32_t current_ = 0;
    std::unordered_map<uint32_t, ISAXReference*> objects_;
    std::vector<ISAXReference*> users_;
    std::unordered_set<ISAXReference*> seenUsers_;
};

SAXReader::SAXReader(std::shared_ptr<SAXContexts::ISAXContext> context)
    : impl_(std::make_unique<Impl>(*this, std::move(context)))
{
}
SAXReader::~SAXReader() = default;

void SAXReader::Read(const wchar_t* path, ISAXPersistBase& root)
{
    impl_->ReadFile(path, root);
}
void SAXReader::Read(const void* data, size_t size, ISAXPersistBase& root)
{
    if (data == nullptr && size != 0)
        throw MSAXError::MGenericRead("no data given");
    const auto* bytes = static_cast<const uint8_t*>(data);
    impl_->Read(std::vector<uint8_t>(bytes, bytes + size), root);
}
void SAXReader::EndRead()
{
    impl_->EndRead();
}

bool SAXReader::ReadInPlace(ISAXPersistBase& persist)
{
    return impl_->ReadInPlace(persist);
}
const std::string& SAXReader::GetEnclosingTag() const
{
    return impl_->EnclosingTag();
}
const std::string& SAXReader::GetCurrentTag() const
{
    return impl_->CurrentTag();
}
bool SAXReader::ReadValue(int32_t& value)
{
    return impl_->Integer(value);
}
bool SAXReader::ReadValue(uint32_t& value)
{
    return impl_->Integer(value);
}
bool SAXReader::ReadValue(int64_t& value)
{
    return impl_->Integer(value);
}
bool SAXReader::ReadValue(uint64_t& value)
{
    return impl_->Integer(value);
}
bool SAXReader::ReadValue(double& value)
{
    return impl_->Double(value);
}
bool SAXReader::ReadValue(bool& value)
{
    return impl_->Bool(value);
}
bool SAXReader::ReadValue(std::string& utf8)
{
    return impl_->String(utf8);
}
bool SAXReader::ReadValue(std::wstring& text)
{
    std::string utf8;
    impl_->String(utf8);
    text = KelSDK::Common::StringConversion::Utf8ToNative(utf8);
    return true;
}
bool SAXReader::GetBinarySize(uint64_t& bytes)
{
    return impl_->BinarySize(bytes);
}
bool SAXReader::ReadBinary(std::vector<uint8_t>& bytes)
{
    return impl_->Binary(bytes);
}
bool SAXReader::ReadBinary(void* destination, size_t bytes)
{
    return impl_->Binary(destination, bytes);
}
void SAXReader::RegisterReferenceUser(ISAXReference* user)
{
    impl_->RegisterUser(user);
}
ISAXReference* SAXReader::LookupReference(uint32_t id) const
{
    return impl_->Lookup(id);
}
SAXContexts::ISAXContext* SAXReader::GetContext()
{
    return impl_->Context();
}
} // namespace KelSAX
