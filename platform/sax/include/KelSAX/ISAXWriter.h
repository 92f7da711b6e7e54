// The writing side of the tag-stream library: elements, typed values, binary values, references.
#pragma once

#include <KelSAX/Export.h>
#include <KelSAX/SAXContexts.h>
#include <cstddef>
#include <cstdint>
#include <string>

namespace KelSAX
{
class ISAXReference;

// Writes a tree of named elements. Names are ASCII XML names ([A-Za-z_][A-Za-z0-9_.-]*). Every
// operation returns false once the writer has failed (a bad name, a misplaced call, a failed
// write); the first failure is kept (SAXWriter::GetError) and the file is not replaced. Not
// thread-safe; no operation throws except std::bad_alloc.
class KELSAX_EXPORT ISAXWriter
{
public:
    virtual ~ISAXWriter();

    // Opens a child element of the open element (or a top-level element).
    virtual bool WriteStartTag(const std::string& name) = 0;
    // Closes the open element; false if name is not the open element's name.
    virtual bool WriteEndTag(const std::string& name) = 0;

    // One element <name>value</name> with the value as text: integers in decimal, doubles in the
    // shortest text that reads back to the same bits ("inf", "-inf", "nan" for those), bool as
    // "true"/"false".
    virtual bool WriteValue(const std::string& name, int32_t value) = 0;
    virtual bool WriteValue(const std::string& name, uint32_t value) = 0;
    virtual bool WriteValue(const std::string& name, int64_t value) = 0;
    virtual bool WriteValue(const std::string& name, uint64_t value) = 0;
    virtual bool WriteValue(const std::string& name, double value) = 0;
    virtual bool WriteValue(const std::string& name, bool value) = 0;
    // A narrow string, read back byte for byte. Valid UTF-8 without control characters is stored
    // as text; any other bytes as base64 (attribute encoding="base64").
    virtual bool WriteValue(const std::string& name, const std::string& utf8) = 0;
    // A wide string, stored as UTF-8 (StringConversion::NativeToUtf8), read back unchanged.
    virtual bool WriteValue(const std::string& name, const std::wstring& text) = 0;
    // Literals go to the string overloads (a pointer would otherwise convert to bool); null is "".
    bool WriteValue(const std::string& name, const char* utf8);
    bool WriteValue(const std::string& name, const wchar_t* text);

    // A binary value of bytes bytes. XML: base64 text. Archive: values of 1 KiB and more become an
    // entry of their own, deflated at the writer's level when compress is true and stored
    // otherwise (pass false for data that is already compressed); smaller ones are base64 text.
    // The bytes are copied (or compressed) before the call returns.
    virtual bool WriteBinary(const std::string& name, const void* data, size_t bytes, bool compress) = 0;

    // The id of object (1, 2, ... in order of first use; 0 for null). Called right after
    // WriteStartTag, it also marks the element just opened as the object's (attribute id): the
    // reader then maps the id to the persist object that reads that element in place. An object
    // is marked on one element only; a call elsewhere only returns the id.
    virtual uint32_t RegisterReference(const ISAXReference* object) = 0;
    // <name>id</name> with the id of object (given now if it has none yet, so references may
    // point forward); 0 for null.
    virtual bool WriteReference(const std::string& name, const ISAXReference* object) = 0;
    // Text of the open element with leading and trailing blanks (space, tab, CR, LF) removed.
    virtual bool _WriteTrimmedCharData(const std::string& utf8) = 0;

    // The context given at construction (never null: a plain one is made when none was given).
    virtual SAXContexts::ISAXContext* GetContext() = 0;
};

// Opens an element on construction and closes it on destruction (results go to the writer's
// error state).
class KELSAX_EXPORT MSAXTagWriter
{
public:
    MSAXTagWriter(ISAXWriter& writer, const std::string& name);
    ~MSAXTagWriter();
    MSAXTagWriter(const MSAXTagWriter&) = delete;
    MSAXTagWriter& operator=(const MSAXTagWriter&) = delete;

private:
    ISAXWriter& writer_;
    std::string name_;
};
} // namespace KelSAX
