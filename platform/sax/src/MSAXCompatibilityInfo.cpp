#include <KelSAX/ISAXReader.h>
#include <KelSAX/ISAXWriter.h>
#include <KelSAX/MSAXCompatibilityInfo.h>
#include <charconv>
#include <climits>

namespace KelSAX
{
MSAXProductInfo::MSAXProductInfo(std::string name) : name_(std::move(name)) {}

MSAXApplicationInfo::MSAXApplicationInfo(std::string name, short v1, short v2, short v3, short v4)
    : name_(std::move(name)), version_{v1, v2, v3, v4}
{
}

std::string MSAXApplicationInfo::GetVersionText() const
{
    return std::to_string(version_[0]) + "." + std::to_string(version_[1]) + "." +
           std::to_string(version_[2]) + "." + std::to_string(version_[3]);
}

bool MSAXApplicationInfo::SetVersionText(const std::string& text)
{
    std::array<short, 4> parts{};
    const char* p = text.data();
    const char* end = p + text.size();
    for (size_t i = 0; i < 4; ++i)
    {
        const auto result = std::from_chars(p, end, parts[i]);
        if (result.ec != std::errc() || (i < 3 && (result.ptr == end || *result.ptr != '.')))
            return false;
        p = i < 3 ? result.ptr + 1 : result.ptr;
    }
    if (p != end)
        return false;
    version_ = parts;
    return true;
}

int MSAXApplicationInfo::CompareVersion(const std::array<short, 4>& other) const
{
    for (size_t i = 0; i < 4; ++i)
    {
        if (version_[i] != other[i])
            return version_[i] < other[i] ? -1 : 1;
    }
    return 0;
}

bool MSAXApplicationInfo::operator==(const MSAXApplicationInfo& other) const
{
    return name_ == other.name_ && version_ == other.version_;
}

MSAXFileVersionInfo::MSAXFileVersionInfo(std::string name, long major, long minor)
    : name_(std::move(name)), major_(major), minor_(minor)
{
}

bool MSAXFileVersionInfo::operator==(const MSAXFileVersionInfo& other) const
{
    return name_ == other.name_ && major_ == other.major_ && minor_ == other.minor_;
}

MSAXCompatibilityInfo::MSAXCompatibilityInfo() = default;
MSAXCompatibilityInfo::~MSAXCompatibilityInfo() = default;
MSAXCompatibilityInfo::MSAXCompatibilityInfo(const MSAXCompatibilityInfo& other) = default;
MSAXCompatibilityInfo& MSAXCompatibilityInfo::operator=(const MSAXCompatibilityInfo& other) = default;

void MSAXCompatibilityInfo::SetFileVersionInfo(const MSAXFileVersionInfo& info)
{
    fileVersion_ = info;
}
void MSAXCompatibilityInfo::SetCurrentProduct(const MSAXProductInfo& product)
{
    product_ = product;
}
void MSAXCompatibilityInfo::SetCurrentApplication(const MSAXApplicationInfo& application)
{
    application_ = application;
}
void MSAXCompatibilityInfo::AddBackwardCompatibleApplication(std::string name, short v1, short v2, short v3,
                                                             short v4)
{
    backward_.emplace_back(std::move(name), v1, v2, v3, v4);
}
void MSAXCompatibilityInfo::AddForwardCompatibleApplication(std::string name, short v1, short v2, short v3,
                                                            short v4)
{
    forward_.emplace_back(std::move(name), v1, v2, v3, v4);
}

void MSAXCompatibilityInfo::Reset()
{
    fileVersion_ = MSAXFileVersionInfo();
    product_ = MSAXProductInfo();
    application_ = MSAXApplicationInfo();
    backward_.clear();
    forward_.clear();
    readApplication_ = MSAXApplicationInfo();
}

bool MSAXCompatibilityInfo::IsFileCompatibilityWithApplication(const MSAXCompatibilityInfo& application) const
{
    const MSAXFileVersionInfo& ownFormat = application.fileVersion_;
    if (fileVersion_.GetName() == ownFormat.GetName() && fileVersion_.GetMajor() > ownFormat.GetMajor())
        return false;
    const MSAXApplicationInfo& writer = application_;
    const MSAXApplicationInfo& reader = application.application_;
    if (writer.GetName() == reader.GetName() && writer.CompareVersion(reader.GetVersion()) <= 0)
        return true;
    for (const MSAXApplicationInfo& entry : backward_)
    {
        if (entry.GetName() == reader.GetName() && entry.CompareVersion(reader.GetVersion()) <= 0)
            return true;
    }
    for (const MSAXApplicationInfo& entry : application.forward_)
    {
        if (entry.GetName() == writer.GetName() && entry.CompareVersion(writer.GetVersion()) >= 0)
            return true;
    }
    return false;
}

bool MSAXCompatibilityInfo::operator==(const MSAXCompatibilityInfo& other) const
{
    return fileVersion_ == other.fileVersion_ && product_ == other.product_ &&
           application_ == other.application_ && backward_ == other.backward_ && forward_ == other.forward_;
}

namespace
{
bool WriteApplication(ISAXWriter& writer, const MSAXApplicationInfo& application)
{
    MSAXTagWriter tag(writer, "Application");
    bool ok = writer.WriteValue("Name", application.GetName());
    ok = writer.WriteValue("Version", application.GetVersionText()) && ok;
    return ok;
}

bool WriteList(ISAXWriter& writer, const char* name, const std::vector<MSAXApplicationInfo>& list)
{
    MSAXTagWriter tag(writer, name);
    bool ok = true;
    for (const MSAXApplicationInfo& application : list)
        ok = WriteApplication(writer, application) && ok;
    return ok;
}
} // namespace

bool MSAXCompatibilityInfo::Write(ISAXWriter& writer) const
{
    bool ok = writer.WriteStartTag("CompatibilityInfo");
    {
        MSAXTagWriter version(writer, "FileVersion");
        ok = writer.WriteValue("Name", fileVersion_.GetName()) && ok;
        ok = writer.WriteValue("Major", static_cast<int64_t>(fileVersion_.GetMajor())) && ok;
        ok = writer.WriteValue("Minor", static_cast<int64_t>(fileVersion_.GetMinor())) && ok;
    }
    {
        MSAXTagWriter product(writer, "Product");
        ok = writer.WriteValue("Name", product_.GetName()) && ok;
    }
    ok = WriteApplication(writer, application_) && ok;
    ok = WriteList(writer, "BackwardCompatible", backward_) && ok;
    ok = WriteList(writer, "ForwardCompatible", forward_) && ok;
    return writer.WriteEndTag("CompatibilityInfo") && ok;
}

// The children arrive here at every depth (the containers are taken without being read in place);
// the enclosing element tells a file version's Name from a product's or an application's.
bool MSAXCompatibilityInfo::HandleTag(const std::string& tag, ISAXReader& reader)
{
    const std::string& parent = reader.GetEnclosingTag();
    if (tag == "FileVersion" || tag == "Product" || tag == "BackwardCompatible" || tag == "ForwardCompatible")
        return true;
    if (tag == "Application")
    {
        readApplication_ = MSAXApplicationInfo();
        return true;
    }
    if (tag == "Name")
    {
        std::string name;
        reader.ReadValue(name);
        if (parent == "FileVersion")
            fileVersion_ = MSAXFileVersionInfo(name, fileVersion_.GetMajor(), fileVersion_.GetMinor());
        else if (parent == "Product")
            product_.SetName(name);
        else if (parent == "Application")
            readApplication_.SetName(name);
        else
            return false;
        return true;
    }
    if (tag == "Version" && parent == "Application")
    {
        std::string text;
        reader.ReadValue(text);
        const size_t first = text.find_first_not_of(" \t\r\n");
        const size_t last = text.find_last_not_of(" \t\r\n");
        return first != std::string::npos &&
               readApplication_.SetVersionText(text.substr(first, last + 1 - first));
    }
    if ((tag == "Major" || tag == "Minor") && parent == "FileVersion")
    {
        int64_t value = 0;
        if (!reader.ReadValue(value) || value < LONG_MIN || value > LONG_MAX)
            return false;
        const long v = static_cast<long>(value);
        fileVersion_ = tag == "Major"
                           ? MSAXFileVersionInfo(fileVersion_.GetName(), v, fileVersion_.GetMinor())
                           : MSAXFileVersionInfo(fileVersion_.GetName(), fileVersion_.GetMajor(), v);
        return true;
    }
    return false;
}

void MSAXCompatibilityInfo::EndTag(const std::string& tag, ISAXReader& reader)
{
    if (tag != "Application")
        return;
    const std::string& parent = reader.GetEnclosingTag();
    if (parent == "BackwardCompatible")
        backward_.push_back(readApplication_);
    else if (parent == "ForwardCompatible")
        forward_.push_back(readApplication_);
    else if (parent.empty() || parent == "CompatibilityInfo")
        application_ = readApplication_;
}
} // namespace KelSAX
