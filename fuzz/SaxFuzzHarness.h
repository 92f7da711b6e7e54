// The reading side of the KelSAX fuzz targets: a root that takes every element, reads it as every
// kind of value, reads elements with an id in place and resolves references, so that all of the
// reader runs on the input. Only the library's own exceptions may leave a read.
#pragma once

#include <KelSAX/KelSAX.h>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KelSaxFuzz
{
class Everything : public KelSAX::ISAXPersistBase
{
public:
    explicit Everything(std::vector<std::unique_ptr<Everything>>& owned) : owned_(owned) {}

    bool HandleTag(const std::string& tag, KelSAX::ISAXReader& reader) override
    {
        int32_t i32;
        uint32_t u32;
        int64_t i64;
        uint64_t u64;
        double d;
        bool b;
        std::string text;
        std::wstring wide;
        reader.ReadValue(i32);
        reader.ReadValue(i64);
        reader.ReadValue(u64);
        reader.ReadValue(d);
        reader.ReadValue(b);
        reader.ReadValue(text);
        reader.ReadValue(wide);
        if (reader.ReadValue(u32))
        {
            reference_ = u32;
            reader.RegisterReferenceUser(this);
        }
        uint64_t size = 0;
        if (reader.GetBinarySize(size))
        {
            std::vector<uint8_t> bytes;
            reader.ReadBinary(bytes);
        }
        if (tag == "CompatibilityInfo")
        {
            KelSAX::MSAXCompatibilityInfo info;
            reader.ReadInPlace(info);
            info.IsFileCompatibilityWithApplication(info);
            return true;
        }
        if ((tag.size() & 1) != 0)
        {
            owned_.push_back(std::make_unique<Everything>(owned_));
            reader.ReadInPlace(*owned_.back());
        }
        return tag != "Skip";
    }

    // The referenced object must be what was read in place (or null).
    void ResolveReferences(KelSAX::ISAXReader& reader) override
    {
        KelSAX::ISAXReference* target = reader.LookupReference(reference_);
        if (target != nullptr && dynamic_cast<KelSAX::ISAXPersistBase*>(target) == nullptr)
            __builtin_trap();
    }

private:
    std::vector<std::unique_ptr<Everything>>& owned_;
    uint32_t reference_ = 0;
};

inline void ReadEverything(const uint8_t* data, size_t size)
{
    std::vector<std::unique_ptr<Everything>> owned;
    Everything root(owned);
    auto context = KelSAX::SAXContextsFactory::CreateSAXContext(KelSAX::eSAXContextDatabase);
    static_cast<KelSAX::SAXContexts::ISAXDatabaseContext&>(*context).SetRequireUniqueIds((size & 1) != 0);
    KelSAX::SAXReader reader(context);
    try
    {
        reader.Read(data, size, root);
        reader.EndRead();
    }
    catch (const KelSAX::MSAXError::MSAXException&)
    {
    }
}
} // namespace KelSaxFuzz
