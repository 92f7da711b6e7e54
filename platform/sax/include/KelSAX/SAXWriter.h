// SAXWriter: writes a tag-stream document to a file, as XML or as a ZIP archive.
#pragma once

#include <KelSAX/ISAXWriter.h>
#include <KelSAX/SAXTypes.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KelSAX
{
// Writes one document to one file. The target is replaced only by a Close without any failure
// (the data goes to a temporary sibling first), so a failed or abandoned write leaves the previous
// file as it was. Destroying an unclosed writer abandons the write.
class KELSAX_EXPORT SAXWriter : public ISAXWriter
{
public:
    // A writer reporting to context (null: a plain context is made).
    explicit SAXWriter(std::shared_ptr<SAXContexts::ISAXContext> context = {});
    ~SAXWriter() override;
    SAXWriter(const SAXWriter&) = delete;
    SAXWriter& operator=(const SAXWriter&) = delete;

    // Starts a document for path: a ZIP archive when archive is true (compression is the deflate
    // level of its entries, encryption as documented in SAXTypes.h), the XML document of
    // OpenXMLBase64 otherwise (both levels then ignored). False (GetError says why) when the
    // temporary file cannot be created or a document is already open.
    bool Open(const wchar_t* path, EEncryptionLevel encryption, ESAXCompressionLevel compression,
              bool archive);
    // Starts an XML document (UTF-8, binary values in base64) for path; false as Open.
    bool OpenXMLBase64(const wchar_t* path);
    // Starts a document in memory (GetBuffer after Close); tests and callers without files.
    bool OpenMemory(ESAXCompressionLevel compression, bool archive);
    // Ends the document: checks that every element was closed, writes the archive when there is
    // one, and renames the temporary over the target. False (target untouched) on any failure so
    // far or now. Closing a closed writer returns false.
    bool Close();
    // The first failure, in English; empty while none occurred.
    const std::string& GetError() const;
    // The bytes of a document written with OpenMemory, complete after Close.
    const std::vector<uint8_t>& GetBuffer() const;

    bool WriteStartTag(const std::string& name) override;
    bool WriteEndTag(const std::string& name) override;
    using ISAXWriter::WriteValue;
    bool WriteValue(const std::string& name, int32_t value) override;
    bool WriteValue(const std::string& name, uint32_t value) override;
    bool WriteValue(const std::string& name, int64_t value) override;
    bool WriteValue(const std::string& name, uint64_t value) override;
    bool WriteValue(const std::string& name, double value) override;
    bool WriteValue(const std::string& name, bool value) override;
    bool WriteValue(const std::string& name, const std::string& utf8) override;
    bool WriteValue(const std::string& name, const std::wstring& text) override;
    bool WriteBinary(const std::string& name, const void* data, size_t bytes, bool compress) override;
    uint32_t RegisterReference(const ISAXReference* object) override;
    bool WriteReference(const std::string& name, const ISAXReference* object) override;
    bool _WriteTrimmedCharData(const std::string& utf8) override;
    SAXContexts::ISAXContext* GetContext() override;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};
} // namespace KelSAX
