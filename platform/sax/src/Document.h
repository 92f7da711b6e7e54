// A parsed tag-stream document: the elements in document order with their text and attributes,
// so that the reader can walk them at the pace of the persist objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace KelSAX::Detail
{
struct Node
{
    enum Flags : uint8_t
    {
        HasSize = 1,      // attribute size: a binary value
        Base64String = 2, // attribute encoding="base64": a string value in base64
        ReadInPlace = 4   // set by the reader when the element was read in place
    };
    uint32_t name = 0;      // index into Document::names
    uint32_t parent = 0;    // index of the enclosing element (0 for the root itself)
    uint32_t end = 0;       // one past the last element of the subtree
    uint32_t id = 0;        // attribute id, 0 if none
    uint32_t entry = 0;     // 1 + index into Document::entries for attribute entry, 0 if none
    uint32_t line = 0;      // line of the start tag, for messages
    uint64_t textBegin = 0; // the element's own character data: Document::text[textBegin, +textSize)
    uint64_t textSize = 0;
    uint64_t size = 0; // attribute size
    uint8_t flags = 0;
};

struct Document
{
    std::vector<Node> nodes;                            // node 0 is the root element "KelSAX"
    std::deque<std::string> names;                      // element names, each once
    std::string text;                                   // character data of all elements
    std::vector<std::string> entries;                   // archive entry names of binary values
    std::unordered_map<uint32_t, uint32_t> firstWithId; // id -> first element carrying it
    uint32_t duplicateId = 0;                           // the first id found on a second element, 0 if none
    uint32_t duplicateLine = 0;

    std::string_view Text(const Node& node) const
    {
        return std::string_view(text).substr(node.textBegin, node.textSize);
    }
    const std::string& Name(const Node& node) const { return names[node.name]; }
};

// Parses size bytes of XML with expat into document. Refuses DOCTYPE declarations (and so every
// entity but the predefined ones), elements nested deeper than maxDepth, a root element other than
// "KelSAX" or without a readable version, malformed id/size/encoding attributes: throws
// MSAXError::MGenericRead saying what and where. A major version above the library's throws
// MSAXError::MSAXIncompatibleVersion. progress(bytesParsed) is called between chunks and may throw.
void ParseDocument(const char* data, size_t size, uint32_t maxDepth, Document& document,
                   const std::function<void(size_t)>& progress);
} // namespace KelSAX::Detail
