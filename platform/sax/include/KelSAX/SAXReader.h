// SAXReader: reads a tag-stream document (XML or ZIP archive) into persist objects.
#pragma once

#include <KelSAX/ISAXPersistBase.h>
#include <KelSAX/ISAXReader.h>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KelSAX
{
// Reads documents written by SAXWriter. The encoding is recognised by the first bytes (a ZIP
// signature: archive; anything else: XML). Hostile input ends as MSAXError::MGenericRead: DOCTYPE
// declarations (and with them every entity beyond the predefined five) are refused, elements
// nest at most kMaxDepth deep, archive entries must match their declared sizes and checksums, and
// the bytes decompressed from an archive may not exceed kMaxExpansion times its size plus
// kExpansionAllowance. Entry names are only looked up, never used as paths.
class KELSAX_EXPORT SAXReader : public ISAXReader
{
public:
    static constexpr uint32_t kMaxDepth = 256;
    static constexpr uint64_t kMaxExpansion = 256;
    static constexpr uint64_t kExpansionAllowance = uint64_t(64) << 20;

    // A reader reporting to context (null: a plain context is made).
    explicit SAXReader(std::shared_ptr<SAXContexts::ISAXContext> context = {});
    ~SAXReader() override;
    SAXReader(const SAXReader&) = delete;
    SAXReader& operator=(const SAXReader&) = delete;

    // Reads the file at path and offers its top-level elements to root. Does not resolve
    // references: call EndRead afterwards. Throws MSAXError::MGenericRead (also for a file that
    // cannot be opened), MSAXError::MSAXIncompatibleVersion, and whatever the persist objects
    // throw. Holds the file in memory while reading; a new Read forgets the previous document.
    void Read(const wchar_t* path, ISAXPersistBase& root);
    // The same from size bytes at data (copied).
    void Read(const void* data, size_t size, ISAXPersistBase& root);
    // Resolves references: calls ResolveReferences of every registered user once, in order of
    // registration, then forgets the users (a second EndRead does nothing). Throws what they throw.
    // Ids stay known to LookupReference until the next Read or the reader's destruction.
    void EndRead();

    bool ReadInPlace(ISAXPersistBase& persist) override;
    const std::string& GetEnclosingTag() const override;
    const std::string& GetCurrentTag() const override;
    bool ReadValue(int32_t& value) override;
    bool ReadValue(uint32_t& value) override;
    bool ReadValue(int64_t& value) override;
    bool ReadValue(uint64_t& value) override;
    bool ReadValue(double& value) override;
    bool ReadValue(bool& value) override;
    bool ReadValue(std::string& utf8) override;
    bool ReadValue(std::wstring& text) override;
    bool GetBinarySize(uint64_t& bytes) override;
    bool ReadBinary(std::vector<uint8_t>& bytes) override;
    bool ReadBinary(void* destination, size_t bytes) override;
    void RegisterReferenceUser(ISAXReference* user) override;
    ISAXReference* LookupReference(uint32_t id) const override;
    SAXContexts::ISAXContext* GetContext() override;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};
} // namespace KelSAX
