#include "Document.h"

#include <KelSAX/MSAXError.h>
#include <KelSAX/SAXTypes.h>
#include <algorithm>
#include <charconv>
#include <cstring>
#include <expat.h>
#include <limits>
#include <memory>
#include <new>

namespace KelSAX::Detail
{
namespace
{
constexpr size_t kParseChunk = size_t(4) << 20;

template <typename T> bool ParseNumber(const char* text, T& value)
{
    const char* end = text + std::strlen(text);
    const auto result = std::from_chars(text, end, value);
    return result.ec == std::errc() && result.ptr == end && end != text;
}

// What the expat callbacks build. Errors are kept here (callbacks never throw through expat) and
// stop the parser.
class Builder
{
public:
    Builder(XML_Parser parser, Document& document, uint32_t maxDepth)
        : parser_(parser), document_(document), maxDepth_(maxDepth)
    {
    }

    static void XMLCALL OnStart(void* self, const XML_Char* name, const XML_Char** attributes)
    {
        static_cast<Builder*>(self)->Guard([&] { static_cast<Builder*>(self)->Start(name, attributes); });
    }
    static void XMLCALL OnEnd(void* self, const XML_Char*)
    {
        static_cast<Builder*>(self)->Guard([&] { static_cast<Builder*>(self)->End(); });
    }
    static void XMLCALL OnText(void* self, const XML_Char* text, int length)
    {
        static_cast<Builder*>(self)->Guard([&] { static_cast<Builder*>(self)->Text(text, length); });
    }
    static void XMLCALL OnDoctype(void* self, const XML_Char*, const XML_Char*, const XML_Char*, int)
    {
        static_cast<Builder*>(self)->Stop("a DOCTYPE declaration is not allowed (no DTDs, no entities)");
    }
    static void XMLCALL OnEntity(void* self, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                                 const XML_Char*, const XML_Char*, const XML_Char*)
    {
        static_cast<Builder*>(self)->Stop("entity declarations are not allowed");
    }

    bool Failed() const { return !error_.empty(); }
    bool Incompatible() const { return incompatible_; }
    const std::string& Error() const { return error_; }
    bool Complete() const { return rootEnded_; }

    void Stop(const std::string& message)
    {
        if (error_.empty())
            error_ = message + Where();
        XML_StopParser(parser_, XML_FALSE);
    }

private:
    struct Frame
    {
        uint32_t node = 0;
        bool direct = true;  // the text so far is the tail of document.text
        std::string pending; // text of an element that has children (mixed content)
    };

    template <typename F> void Guard(F&& body)
    {
        if (Failed())
            return;
        try
        {
            body();
        }
        catch (const std::bad_alloc&)
        {
            Stop("out of memory");
        }
        catch (const std::length_error&)
        {
            Stop("out of memory");
        }
    }

    std::string Where() const
    {
        return " (line " + std::to_string(XML_GetCurrentLineNumber(parser_)) + ", column " +
               std::to_string(XML_GetCurrentColumnNumber(parser_)) + ")";
    }

    uint32_t Intern(const char* name)
    {
        const std::string_view key(name);
        auto it = index_.find(key);
        if (it != index_.end())
            return it->second;
        document_.names.emplace_back(key);
        const auto id = static_cast<uint32_t>(document_.names.size() - 1);
        index_.emplace(document_.names.back(), id);
        return id;
    }

    void Start(const char* name, const char** attributes)
    {
        if (depth_ >= maxDepth_)
            return Stop("elements are nested deeper than " + std::to_string(maxDepth_) + " levels");
        if (document_.nodes.size() >= std::numeric_limits<uint32_t>::max() - 1)
            return Stop("too many elements");
        const bool root = document_.nodes.empty();
        Node node;
        node.name = Intern(name);
        node.line = static_cast<uint32_t>(std::min<XML_Size>(XML_GetCurrentLineNumber(parser_), UINT32_MAX));
        node.parent = root ? 0 : frames_[depth_ - 1].node;
        if (root)
        {
            if (std::strcmp(name, "KelSAX") != 0)
                return Stop(std::string("not a KelSAX document: the root element is '") + name + "'");
            if (!RootVersion(attributes))
                return;
        }
        else
        {
            Frame& parent = frames_[depth_ - 1];
            if (parent.direct)
            {
                // The parent has children: its text continues in its frame.
                const Node& p = document_.nodes[parent.node];
                parent.pending.assign(document_.text, p.textBegin, std::string::npos);
                document_.text.resize(p.textBegin);
                parent.direct = false;
            }
            if (!Attributes(name, attributes, node))
                return;
        }
        node.textBegin = document_.text.size();
        const auto index = static_cast<uint32_t>(document_.nodes.size());
        document_.nodes.push_back(node);
        if (node.id != 0)
        {
            auto [it, added] = document_.firstWithId.emplace(node.id, index);
            (void)it;
            if (!added && document_.duplicateId == 0)
            {
                document_.duplicateId = node.id;
                document_.duplicateLine = node.line;
            }
        }
        if (frames_.size() <= depth_)
            frames_.emplace_back();
        Frame& frame = frames_[depth_++];
        frame.node = index;
        frame.direct = true;
        frame.pending.clear();
    }

    bool RootVersion(const char** attributes)
    {
        const char* version = nullptr;
        for (const char** a = attributes; *a != nullptr; a += 2)
        {
            if (std::strcmp(a[0], "version") == 0)
                version = a[1];
        }
        if (version == nullptr)
            return Stop("the KelSAX root element has no version"), false;
        const char* end = version + std::strlen(version);
        int32_t major = 0, minor = 0;
        auto r = std::from_chars(version, end, major);
        bool ok = r.ec == std::errc() && r.ptr != end && *r.ptr == '.';
        if (ok)
        {
            r = std::from_chars(r.ptr + 1, end, minor);
            ok = r.ec == std::errc() && r.ptr == end && major >= 0 && minor >= 0;
        }
        if (!ok)
            return Stop(std::string("the KelSAX version '") + version + "' is not major.minor"), false;
        if (major > kFormatMajor)
        {
            incompatible_ = true;
            error_ = "the document is in KelSAX format " + std::string(version) + "; this library reads " +
                     std::to_string(kFormatMajor) + ".x";
            XML_StopParser(parser_, XML_FALSE);
            return false;
        }
        return true;
    }

    bool Attributes(const char* name, const char** attributes, Node& node)
    {
        for (const char** a = attributes; *a != nullptr; a += 2)
        {
            const char* key = a[0];
            const char* value = a[1];
            bool ok = true;
            if (std::strcmp(key, "id") == 0)
                ok = ParseNumber(value, node.id) && node.id != 0;
            else if (std::strcmp(key, "size") == 0)
            {
                ok = ParseNumber(value, node.size);
                node.flags |= Node::HasSize;
            }
            else if (std::strcmp(key, "entry") == 0)
            {
                document_.entries.emplace_back(value);
                node.entry = static_cast<uint32_t>(document_.entries.size());
            }
            else if (std::strcmp(key, "encoding") == 0)
            {
                ok = std::strcmp(value, "base64") == 0;
                node.flags |= Node::Base64String;
            }
            if (!ok)
                return Stop(std::string("element '") + name + "' has an invalid " + key + " '" + value + "'"),
                       false;
        }
        return true;
    }

    void Text(const char* text, int length)
    {
        if (depth_ == 0)
            return;
        Frame& frame = frames_[depth_ - 1];
        if (frame.direct)
            document_.text.append(text, static_cast<size_t>(length));
        else
            frame.pending.append(text, static_cast<size_t>(length));
    }

    void End()
    {
        Frame& frame = frames_[--depth_];
        Node& node = document_.nodes[frame.node];
        if (frame.direct)
        {
            node.textSize = document_.text.size() - node.textBegin;
        }
        else
        {
            node.textBegin = document_.text.size();
            node.textSize = frame.pending.size();
            document_.text += frame.pending;
            frame.pending.clear();
        }
        node.end = static_cast<uint32_t>(document_.nodes.size());
        if (depth_ == 0)
            rootEnded_ = true;
    }

    XML_Parser parser_;
    Document& document_;
    uint32_t maxDepth_;
    uint32_t depth_ = 0;
    std::vector<Frame> frames_;
    std::unordered_map<std::string_view, uint32_t> index_;
    std::string error_;
    bool incompatible_ = false;
    bool rootEnded_ = false;
};
} // namespace

void ParseDocument(const char* data, size_t size, uint32_t maxDepth, Document& document,
                   const std::function<void(size_t)>& progress)
{
    std::unique_ptr<std::remove_pointer_t<XML_Parser>, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr),
                                                                                    XML_ParserFree);
    if (!parser)
        throw MSAXError::MGenericRead("out of memory: no XML parser");
    Builder builder(parser.get(), document, maxDepth);
    XML_SetUserData(parser.get(), &builder);
    XML_SetElementHandler(parser.get(), Builder::OnStart, Builder::OnEnd);
    XML_SetCharacterDataHandler(parser.get(), Builder::OnText);
    XML_SetStartDoctypeDeclHandler(parser.get(), Builder::OnDoctype);
    XML_SetEntityDeclHandler(parser.get(), Builder::OnEntity);
    XML_SetParamEntityParsing(parser.get(), XML_PARAM_ENTITY_PARSING_NEVER);

    size_t done = 0;
    do
    {
        const size_t n = std::min(kParseChunk, size - done);
        const bool last = done + n == size;
        if (XML_Parse(parser.get(), data + done, static_cast<int>(n), last) != XML_STATUS_OK)
        {
            if (builder.Incompatible())
                throw MSAXError::MSAXIncompatibleVersion(builder.Error());
            if (builder.Failed())
                throw MSAXError::MGenericRead(builder.Error());
            throw MSAXError::MGenericRead(
                std::string("malformed XML: ") + XML_ErrorString(XML_GetErrorCode(parser.get())) + " (line " +
                std::to_string(XML_GetCurrentLineNumber(parser.get())) + ", column " +
                std::to_string(XML_GetCurrentColumnNumber(parser.get())) + ")");
        }
        done += n;
        if (progress)
            progress(done);
    } while (done < size);
    if (!builder.Complete())
        throw MSAXError::MGenericRead("the document ends before its root element");
}
} // namespace KelSAX::Detail
