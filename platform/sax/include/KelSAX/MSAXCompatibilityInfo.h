// Compatibility records: which product and application wrote a file, its file version, and which
// applications can read it.
//
// Written as the element "CompatibilityInfo":
//   <CompatibilityInfo>
//     <FileVersion><Name>KelStl</Name><Major>1</Major><Minor>0</Minor></FileVersion>
//     <Product><Name>KelStl</Name></Product>
//     <Application><Name>KelStl</Name><Version>1.0.0.0</Version></Application>
//     <BackwardCompatible><Application>...</Application>...</BackwardCompatible>
//     <ForwardCompatible><Application>...</Application>...</ForwardCompatible>
//   </CompatibilityInfo>
// Unknown children are skipped, so newer records stay readable.
#pragma once

#include <KelSAX/Export.h>
#include <KelSAX/ISAXPersistBase.h>
#include <array>
#include <string>
#include <utility>
#include <vector>

namespace KelSAX
{
// The product a file belongs to.
class KELSAX_EXPORT MSAXProductInfo
{
public:
    explicit MSAXProductInfo(std::string name = {});
    const std::string& GetName() const { return name_; }
    void SetName(std::string name) { name_ = std::move(name); }
    bool operator==(const MSAXProductInfo& other) const { return name_ == other.name_; }
    bool operator!=(const MSAXProductInfo& other) const { return !(*this == other); }

private:
    std::string name_;
};

// An application with a four-part version (major, minor, build, revision).
class KELSAX_EXPORT MSAXApplicationInfo
{
public:
    MSAXApplicationInfo() = default;
    MSAXApplicationInfo(std::string name, short v1, short v2, short v3, short v4);
    const std::string& GetName() const { return name_; }
    void SetName(std::string name) { name_ = std::move(name); }
    const std::array<short, 4>& GetVersion() const { return version_; }
    // "1.0.0.0".
    std::string GetVersionText() const;
    // Parses "a.b.c.d" (each part a short); false (unchanged) otherwise.
    bool SetVersionText(const std::string& text);
    // Compares versions part by part: <0, 0, >0.
    int CompareVersion(const std::array<short, 4>& other) const;
    bool operator==(const MSAXApplicationInfo& other) const;
    bool operator!=(const MSAXApplicationInfo& other) const { return !(*this == other); }

private:
    std::string name_;
    std::array<short, 4> version_{};
};

// The version of a file format under a name (major.minor).
class KELSAX_EXPORT MSAXFileVersionInfo
{
public:
    MSAXFileVersionInfo() = default;
    MSAXFileVersionInfo(std::string name, long major, long minor);
    const std::string& GetName() const { return name_; }
    long GetMajor() const { return major_; }
    long GetMinor() const { return minor_; }
    bool operator==(const MSAXFileVersionInfo& other) const;
    bool operator!=(const MSAXFileVersionInfo& other) const { return !(*this == other); }

private:
    std::string name_;
    long major_ = 0;
    long minor_ = 0;
};

// The compatibility record of a file (or of the running application, to compare with).
//
// Compatibility rule (IsFileCompatibilityWithApplication, called on the file's record with the
// application's record): let F be the file's current application and A the application's.
//   1. When both records name the same file format (FileVersion name) and the file's major
//      version is above the application's, the file is not compatible. Otherwise:
//   2. compatible when F and A have the same name and F's version is not above A's;
//   3. compatible when the file's backward-compatible list names A with a version not above A's
//      (the file says: A from this version on reads me);
//   4. compatible when the application's forward-compatible list names F with a version not below
//      F's (the application says: I read files of F up to this version);
//   5. otherwise not compatible.
// Reading never acts on this rule by itself; the reader's own version check is kFormatMajor.
class KELSAX_EXPORT MSAXCompatibilityInfo : public ISAXPersistBase
{
public:
    MSAXCompatibilityInfo();
    ~MSAXCompatibilityInfo() override;
    MSAXCompatibilityInfo(const MSAXCompatibilityInfo& other);
    MSAXCompatibilityInfo& operator=(const MSAXCompatibilityInfo& other);

    void SetFileVersionInfo(const MSAXFileVersionInfo& info);
    void SetCurrentProduct(const MSAXProductInfo& product);
    void SetCurrentApplication(const MSAXApplicationInfo& application);
    // Appends to the list of applications that can read files of this record (from that version on).
    void AddBackwardCompatibleApplication(std::string name, short v1, short v2, short v3, short v4);
    // Appends to the list of applications whose files this record's application reads (up to that version).
    void AddForwardCompatibleApplication(std::string name, short v1, short v2, short v3, short v4);

    const MSAXFileVersionInfo& GetFileVersionInfo() const { return fileVersion_; }
    const MSAXProductInfo& GetCurrentProduct() const { return product_; }
    const MSAXApplicationInfo& GetCurrentApplication() const { return application_; }
    const std::vector<MSAXApplicationInfo>& GetBackwardCompatibleApplications() const { return backward_; }
    const std::vector<MSAXApplicationInfo>& GetForwardCompatibleApplications() const { return forward_; }

    // Empties the record (as default constructed).
    void Reset();
    void Clear() { Reset(); }
    // The rule above; this is the file's record. Does not throw.
    bool IsFileCompatibilityWithApplication(const MSAXCompatibilityInfo& application) const;

    bool operator==(const MSAXCompatibilityInfo& other) const;
    bool operator!=(const MSAXCompatibilityInfo& other) const { return !(*this == other); }

    // Writes the element "CompatibilityInfo" (layout above).
    bool Write(ISAXWriter& writer) const override;
    // Reads the children of "CompatibilityInfo" (read it in place with this record); a value that
    // does not parse is declined and keeps the field unchanged.
    bool HandleTag(const std::string& tag, ISAXReader& reader) override;
    void EndTag(const std::string& tag, ISAXReader& reader) override;

private:
    // While reading: the application element being read and the list it goes to.
    MSAXApplicationInfo readApplication_;
    MSAXFileVersionInfo fileVersion_;
    MSAXProductInfo product_;
    MSAXApplicationInfo application_;
    std::vector<MSAXApplicationInfo> backward_;
    std::vector<MSAXApplicationInfo> forward_;
};
} // namespace KelSAX
