// SAXWriter: the document as XML text, streamed to a temporary sibling of the target (XML) or
// kept until Close and stored with the binary values as entries of a ZIP archive.
//
// Document layout:
//   <?xml version="1.0" encoding="UTF-8"?>
//   <KelSAX version="1.0">
//     <Element id="1">                   id: RegisterReference right after the start tag
//       <Count>3</Count>                 typed values as text
//       <Name encoding="base64">AAE=</Name>   strings XML cannot carry as text
//       <Points size="24">AAAA...</Points>    binary value, base64 inline
//       <Points size="4096" entry="values/1"/>  binary value in an archive entry
//     </Element>
//   </KelSAX>
// Elements are indented by two spaces per level; the archive holds "document.xml" first and
// then "values/1", "values/2", ... in the order they were written.
#include "ArchiveWriter.h"
#include "Base64.h"
#include "Deflate.h"
#include "XmlText.h"

#include <KelSDK/Common/StringConversion.h>
#include <KelSDK/FileIO/MFile.h>

#include <KelSAX/SAXWriter.h>
#include <charconv>
#include <unordered_map>

namespace KelSAX
{
namespace
{
// Binary values from this size on get an archive entry of their own.
constexpr size_t kEntryThreshold = 1024;
// XML text is handed to the file in pieces of about this size.
constexpr size_t kFlushSize = size_t(1) << 20;

enum class Target
{
    Closed,
    Xml,
    Archive
};
} // namespace

class SAXWriter::Impl
{
public:
    explicit Impl(std::shared_ptr<SAXContexts::ISAXContext> context)
        : context_(context ? std::move(context) : SAXContextsFactory::CreateSAXContext(eSAXContextPlain))
    {
    }

    bool Open(const wchar_t* path, ESAXCompressionLevel compression, bool archive)
    {
        if (target_ != Target::Closed || closed_)
            return Fail("the writer has already been opened");
        if (path != nullptr)
        {
            file_ = std::make_unique<KelSDK::FileIO::MFile>();
            if (!file_->OPEN_WRITE(path))
                return FailFile("cannot create '" + KelSDK::Common::StringConversion::NativeToUtf8(path) +
                                "'");
        }
        else
        {
            memory_ = true;
        }
        level_ = compression < -1 ? -1 : compression > 9 ? 9 : static_cast<int>(compression);
        target_ = archive ? Target::Archive : Target::Xml;
        ReportProgress(0.0);
        out_ = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<KelSAX version=\"" +
               std::to_string(kFormatMajor) + "." + std::to_string(kFormatMinor) + "\">";
        return true;
    }

    bool Close()
    {
        if (target_ == Target::Closed)
            return Fail("the writer is not open");
        const Target target = target_;
        target_ = Target::Closed;
        closed_ = true;
        if (!failed_ && !stack_.empty())
            Fail("element '" + stack_.back().name + "' is still open");
        if (failed_)
        {
            Abandon();
            return false;
        }
        out_ += "\n</KelSAX>\n";
        std::vector<uint8_t> archive;
        if (target == Target::Archive)
        {
            Detail::EntryData document;
            std::string error;
            if (!Detail::MakeEntryData(out_.data(), out_.size(), level_, document, error))
                return Fail(error), Abandon(), false;
            std::string().swap(out_);
            std::vector<std::pair<std::string, const Detail::EntryData*>> entries;
            entries.emplace_back("document.xml", &document);
            for (size_t i = 0; i < values_.size(); ++i)
                entries.emplace_back("values/" + std::to_string(i + 1), &values_[i]);
            if (!Detail::BuildArchive(entries, archive, error))
                return Fail(error), Abandon(), false;
            values_.clear();
        }
        if (memory_)
        {
            if (target == Target::Archive)
                buffer_ = std::move(archive);
            else
                buffer_.assign(out_.begin(), out_.end());
        }
        else
        {
            if (target == Target::Archive)
                file_->WRITE(archive.data(), archive.size());
            else
                file_->WRITE(out_.data(), out_.size());
            const bool written = !file_->HasError();
            if (!file_->Close() || !written)
                return FailFile("cannot write '" + FileName() + "'");
        }
        std::string().swap(out_);
        ReportProgress(1.0);
        return true;
    }

    bool StartTag(const std::string& name)
    {
        if (!Usable())
            return false;
        if (!Detail::IsElementName(name))
            return Fail("'" + name + "' is not an element name");
        if (!stack_.empty())
        {
            EndPendingStart();
            stack_.back().hasChildren = true;
        }
        out_ += '\n';
        out_.append(2 * (stack_.size() + 1), ' ');
        out_ += '<';
        out_ += name;
        stack_.push_back({name, false, false});
        pending_ = true;
        return true;
    }

    bool EndTag(const std::string& name)
    {
        if (!Usable())
            return false;
        if (stack_.empty())
            return Fail("end tag '" + name + "' without an open element");
        if (stack_.back().name != name)
            return Fail("end tag '" + name + "' while '" + stack_.back().name + "' is open");
        if (pending_)
        {
            out_ += "/>";
            pending_ = false;
        }
        else
        {
            if (stack_.back().hasChildren)
            {
                out_ += '\n';
                out_.append(2 * stack_.size(), ' ');
            }
            out_ += "</";
            out_ += name;
            out_ += '>';
        }
        stack_.pop_back();
        return Flush();
    }

    // <name>text</name>, text escaped.
    bool TextElement(const std::string& name, std::string_view text)
    {
        if (!StartTag(name))
            return false;
        EndPendingStart();
        Detail::AppendEscaped(out_, text);
        stack_.back().hasText = true;
        return EndTag(name);
    }

    template <typename T> bool Number(const std::string& name, T value)
    {
        char text[64];
        const auto result = std::to_chars(text, text + sizeof text, value);
        return TextElement(name, std::string_view(text, static_cast<size_t>(result.ptr - text)));
    }

    bool String(const std::string& name, const std::string& utf8)
    {
        if (Detail::IsXmlText(utf8))
            return TextElement(name, utf8);
        if (!StartTag(name))
            return false;
        out_ += " encoding=\"base64\">";
        pending_ = false;
        Detail::AppendBase64(out_, utf8.data(), utf8.size());
        stack_.back().hasText = true;
        return EndTag(name);
    }

    bool Binary(const std::string& name, const void* data, size_t bytes, bool compress)
    {
        if (data == nullptr && bytes != 0)
            return Fail("binary value '" + name + "' has no data");
        if (!StartTag(name))
            return false;
        out_ += " size=\"" + std::to_string(bytes) + "\"";
        if (target_ == Target::Archive && bytes >= kEntryThreshold)
        {
            Detail::EntryData entry;
            std::string error;
            if (!Detail::MakeEntryData(data, bytes, compress ? level_ : 0, entry, error))
                return Fail(error);
            values_.push_back(std::move(entry));
            out_ += " entry=\"values/" + std::to_string(values_.size()) + "\"";
        }
        else
        {
            out_ += '>';
            pending_ = false;
            Detail::AppendBase64(out_, data, bytes);
            stack_.back().hasText = true;
        }
        return EndTag(name);
    }

    uint32_t Register(const ISAXReference* object)
    {
        if (object == nullptr || failed_)
            return 0;
        const uint32_t id = IdOf(object);
        if (pending_ && !stack_.back().marked && marked_.emplace(object, true).second)
        {
            out_ += " id=\"" + std::to_string(id) + "\"";
            stack_.back().marked = true;
        }
        return id;
    }

    bool Reference(const std::string& name, const ISAXReference* object)
    {
        return Number(name, object == nullptr ? uint32_t(0) : IdOf(object));
    }

    bool TrimmedText(const std::string& utf8)
    {
        if (!Usable())
            return false;
        if (stack_.empty())
            return Fail("character data outside any element");
        const std::string_view text = Detail::TrimBlanks(utf8);
        if (!Detail::IsXmlText(text))
            return Fail("character data of '" + stack_.back().name +
                        "' is not UTF-8 text that XML can carry");
        EndPendingStart();
        Detail::AppendEscaped(out_, text);
        stack_.back().hasText = true;
        return true;
    }

    bool Fail(const std::string& message)
    {
        if (!failed_)
        {
            failed_ = true;
            error_ = message;
        }
        return false;
    }

    SAXContexts::ISAXContext* Context() { return context_.get(); }
    const std::string& Error() const { return error_; }
    const std::vector<uint8_t>& Buffer() const { return buffer_; }

    ~Impl()
    {
        if (file_ && file_->IsOpen())
            file_->Abandon();
    }

private:
    struct OpenElement
    {
        std::string name;
        bool hasChildren;
        bool hasText;
        bool marked = false;
    };

    bool Usable()
    {
        if (failed_)
            return false;
        if (target_ == Target::Closed)
            return Fail("the writer is not open");
        return true;
    }

    void EndPendingStart()
    {
        if (pending_)
        {
            out_ += '>';
            pending_ = false;
        }
    }

    uint32_t IdOf(const ISAXReference* object)
    {
        auto [it, added] = ids_.emplace(object, static_cast<uint32_t>(ids_.size() + 1));
        (void)added;
        return it->second;
    }

    // XML files take the text in pieces; a start tag still open stays in the buffer.
    bool Flush()
    {
        if (target_ != Target::Xml || memory_ || out_.size() < kFlushSize || pending_)
            return true;
        if (!file_->WRITE(out_.data(), out_.size()))
            return FailFile("cannot write '" + FileName() + "'");
        out_.clear();
        return true;
    }

    bool FailFile(const std::string& what)
    {
        std::string message = what;
        const std::error_code reason = file_ ? file_->GetSystemError() : std::error_code();
        if (reason)
            message += ": " + reason.message();
        return Fail(message);
    }

    std::string FileName() const
    {
        return file_ ? KelSDK::Common::StringConversion::NativeToUtf8(file_->GetName()) : std::string();
    }

    void Abandon()
    {
        if (file_ && file_->IsOpen())
            file_->Abandon();
        values_.clear();
        std::string().swap(out_);
    }

    void ReportProgress(double fraction)
    {
        if (const auto& delegate = context_->GetProgressDelegate())
            delegate->SetProgress(fraction);
    }

    std::shared_ptr<SAXContexts::ISAXContext> context_;
    std::unique_ptr<KelSDK::FileIO::MFile> file_;
    bool memory_ = false;
    Target target_ = Target::Closed;
    bool closed_ = false;
    int level_ = -1;
    std::string out_;
    std::vector<OpenElement> stack_;
    bool pending_ = false;
    std::unordered_map<const ISAXReference*, uint32_t> ids_;
    std::unordered_map<const ISAXReference*, bool> marked_;
    std::vector<Detail::EntryData> values_;
    std::vector<uint8_t> buffer_;
    bool failed_ = false;
    std::string error_;
};

SAXWriter::SAXWriter(std::shared_ptr<SAXContexts::ISAXContext> context)
    : impl_(std::make_unique<Impl>(std::move(context)))
{
}
SAXWriter::~SAXWriter() = default;

bool SAXWriter::Open(const wchar_t* path, EEncryptionLevel encryption, ESAXCompressionLevel compression,
                     bool archive)
{
    (void)encryption; // neither level encrypts (SAXTypes.h)
    if (path == nullptr)
        return impl_->Fail("no file name given");
    return impl_->Open(path, compression, archive);
}
bool SAXWriter::OpenXMLBase64(const wchar_t* path)
{
    if (path == nullptr)
        return impl_->Fail("no file name given");
    return impl_->Open(path, eSAXCompressionDefault, false);
}
bool SAXWriter::OpenMemory(ESAXCompressionLevel compression, bool archive)
{
    return impl_->Open(nullptr, compression, archive);
}
bool SAXWriter::Close()
{
    return impl_->Close();
}
const std::string& SAXWriter::GetError() const
{
    return impl_->Error();
}
const std::vector<uint8_t>& SAXWriter::GetBuffer() const
{
    return impl_->Buffer();
}

bool SAXWriter::WriteStartTag(const std::string& name)
{
    return impl_->StartTag(name);
}
bool SAXWriter::WriteEndTag(const std::string& name)
{
    return impl_->EndTag(name);
}
bool SAXWriter::WriteValue(const std::string& name, int32_t value)
{
    return impl_->Number(name, value);
}
bool SAXWriter::WriteValue(const std::string& name, uint32_t value)
{
    return impl_->Number(name, value);
}
bool SAXWriter::WriteValue(const std::string& name, int64_t value)
{
    return impl_->Number(name, value);
}
bool SAXWriter::WriteValue(const std::string& name, uint64_t value)
{
    return impl_->Number(name, value);
}
bool SAXWriter::WriteValue(const std::string& name, double value)
{
    return impl_->Number(name, value);
}
bool SAXWriter::WriteValue(const std::string& name, bool value)
{
    return impl_->TextElement(name, value ? "true" : "false");
}
bool SAXWriter::WriteValue(const std::string& name, const std::string& utf8)
{
    return impl_->String(name, utf8);
}
bool SAXWriter::WriteValue(const std::string& name, const std::wstring& text)
{
    return impl_->String(name, KelSDK::Common::StringConversion::NativeToUtf8(text));
}
bool SAXWriter::WriteBinary(const std::string& name, const void* data, size_t bytes, bool compress)
{
    return impl_->Binary(name, data, bytes, compress);
}
uint32_t SAXWriter::RegisterReference(const ISAXReference* object)
{
    return impl_->Register(object);
}
bool SAXWriter::WriteReference(const std::string& name, const ISAXReference* object)
{
    return impl_->Reference(name, object);
}
bool SAXWriter::_WriteTrimmedCharData(const std::string& utf8)
{
    return impl_->TrimmedText(utf8);
}
SAXContexts::ISAXContext* SAXWriter::GetContext()
{
    return impl_->Context();
}
} // namespace KelSAX
