// The reading side of the tag-stream library: walking elements, typed values, references.
#pragma once

#include <KelSAX/Export.h>
#include <KelSAX/SAXContexts.h>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KelSAX
{
class ISAXPersistBase;
class ISAXReference;

// The reader as persist objects see it while a document is read. The "current element" is the
// one last offered to a HandleTag (during the top-level walk before any: the document itself).
// Value reads look at the current element only and may be repeated. Not thread-safe.
class KELSAX_EXPORT ISAXReader
{
public:
    virtual ~ISAXReader();

    // Offers each child of the current element to persist (HandleTag, then EndTag for a taken
    // child; a taken child that is not read in place offers its own children to persist too), then
    // returns true. If the current element has an id, the id now names &persist (LookupReference).
    // False only when the current element was already read in place. Throws what persist throws
    // and MSAXError::MGenericRead for a damaged value it cannot skip.
    virtual bool ReadInPlace(ISAXPersistBase& persist) = 0;
    // Name of the element that encloses the current element ("" for a top-level element).
    virtual const std::string& GetEnclosingTag() const = 0;
    // Name of the current element ("" for the document itself).
    virtual const std::string& GetCurrentTag() const = 0;

    // The text of the current element as a value, with leading and trailing blanks ignored;
    // false (value unchanged) when it is not exactly one value of the type in range. Integers in
    // decimal, doubles as std::from_chars reads them, bool as true/false/1/0.
    virtual bool ReadValue(int32_t& value) = 0;
    virtual bool ReadValue(uint32_t& value) = 0;
    virtual bool ReadValue(int64_t& value) = 0;
    virtual bool ReadValue(uint64_t& value) = 0;
    virtual bool ReadValue(double& value) = 0;
    virtual bool ReadValue(bool& value) = 0;
    // The text of the current element exactly as written (no trimming); base64-encoded strings
    // decoded. True; throws MSAXError::MGenericRead for damaged base64.
    virtual bool ReadValue(std::string& utf8) = 0;
    // The same text converted from UTF-8 to a wide string (StringConversion::Utf8ToNative).
    virtual bool ReadValue(std::wstring& text) = 0;

    // Size in bytes of the binary value of the current element; false if it holds none.
    // Does not decode; cheap.
    virtual bool GetBinarySize(uint64_t& bytes) = 0;
    // The binary value of the current element into bytes (resized once); false if it holds none.
    // Throws MSAXError::MGenericRead for a damaged value (bad base64, a size that disagrees with
    // the data, a missing or damaged archive entry, the archive's decompression bound exceeded).
    virtual bool ReadBinary(std::vector<uint8_t>& bytes) = 0;
    // The same straight into caller memory: false (nothing written) unless bytes is exactly the
    // value's size (GetBinarySize). Throws as above.
    virtual bool ReadBinary(void* destination, size_t bytes) = 0;

    // user->ResolveReferences(reader) runs once after the document (SAXReader::EndRead), in order
    // of first registration. user must live until then. Null is ignored.
    virtual void RegisterReferenceUser(ISAXReference* user) = 0;
    // The persist object that read the element carrying id in place; null for 0, an unknown id or
    // an element never read in place. The object is only as alive as the caller kept it.
    virtual ISAXReference* LookupReference(uint32_t id) const = 0;

    // The context given at construction (never null: a plain one is made when none was given).
    virtual SAXContexts::ISAXContext* GetContext() = 0;
};
} // namespace KelSAX
