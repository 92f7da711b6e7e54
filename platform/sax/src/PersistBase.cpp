// The out-of-line members of the interfaces, errors, contexts and MSAXTagWriter.
#include <KelSAX/ISAXPersistBase.h>
#include <KelSAX/ISAXReader.h>
#include <KelSAX/ISAXWriter.h>
#include <KelSAX/MSAXError.h>
#include <KelSAX/SAXContexts.h>

namespace KelSAX
{
namespace MSAXError
{
MSAXException::~MSAXException() = default;
MGenericRead::~MGenericRead() = default;
MSAXIncompatibleVersion::~MSAXIncompatibleVersion() = default;
} // namespace MSAXError

ISAXReference::~ISAXReference() = default;
void ISAXReference::ResolveReferences(ISAXReader&) {}

ISAXPersistBase::~ISAXPersistBase() = default;
void ISAXPersistBase::ResolveReferences(ISAXReader&) {}
bool ISAXPersistBase::Write(ISAXWriter&) const
{
    return true;
}
void ISAXPersistBase::EndTag(const std::string&, ISAXReader&) {}

ISAXReader::~ISAXReader() = default;
ISAXWriter::~ISAXWriter() = default;

bool ISAXWriter::WriteValue(const std::string& name, const char* utf8)
{
    return WriteValue(name, std::string(utf8 != nullptr ? utf8 : ""));
}
bool ISAXWriter::WriteValue(const std::string& name, const wchar_t* text)
{
    return WriteValue(name, std::wstring(text != nullptr ? text : L""));
}

MSAXTagWriter::MSAXTagWriter(ISAXWriter& writer, const std::string& name) : writer_(writer), name_(name)
{
    writer_.WriteStartTag(name_);
}
MSAXTagWriter::~MSAXTagWriter()
{
    writer_.WriteEndTag(name_);
}

namespace SAXContexts
{
ISAXContext::~ISAXContext() = default;
ESAXContextFactoryType ISAXContext::GetType() const
{
    return eSAXContextPlain;
}
void ISAXContext::SetProgressDelegate(std::shared_ptr<KelSDK::Common::IProgressDelegate> delegate)
{
    progress_ = std::move(delegate);
}
const std::shared_ptr<KelSDK::Common::IProgressDelegate>& ISAXContext::GetProgressDelegate() const
{
    return progress_;
}

ISAXDatabaseContext::~ISAXDatabaseContext() = default;
ESAXContextFactoryType ISAXDatabaseContext::GetType() const
{
    return eSAXContextDatabase;
}
void ISAXDatabaseContext::SetRequireUniqueIds(bool on)
{
    requireUniqueIds_ = on;
}
bool ISAXDatabaseContext::GetRequireUniqueIds() const
{
    return requireUniqueIds_;
}
} // namespace SAXContexts

std::shared_ptr<SAXContexts::ISAXContext> SAXContextsFactory::CreateSAXContext(ESAXContextFactoryType type)
{
    if (type == eSAXContextDatabase)
        return std::make_shared<SAXContexts::ISAXDatabaseContext>();
    return std::make_shared<SAXContexts::ISAXContext>();
}
} // namespace KelSAX
