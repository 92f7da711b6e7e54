// Contexts: settings shared by the readers and writers of one application task (progress, and for
// databases the handling of element ids).
#pragma once

#include <KelSDK/Common/Progress.h>

#include <KelSAX/Export.h>
#include <KelSAX/SAXTypes.h>
#include <memory>

namespace KelSAX
{
namespace SAXContexts
{
// Holds the progress delegate that readers and writers made with this context report to.
// Not synchronised: set it up before handing the context to readers and writers.
class KELSAX_EXPORT ISAXContext
{
public:
    virtual ~ISAXContext();
    // The kind this context was made as.
    virtual ESAXContextFactoryType GetType() const;
    // Replaces the delegate (null: no reports). Reading reports the share of the document walked;
    // a delegate that says IsCancelled stops a read with MSAXError::MGenericRead.
    void SetProgressDelegate(std::shared_ptr<KelSDK::Common::IProgressDelegate> delegate);
    // The delegate set last; null if none.
    const std::shared_ptr<KelSDK::Common::IProgressDelegate>& GetProgressDelegate() const;

private:
    std::shared_ptr<KelSDK::Common::IProgressDelegate> progress_;
};

// A context for reading databases of referenced objects. Its option RequireUniqueIds (off by
// default) decides what a second element with an id already seen in the document does:
//   off: the document is read; LookupReference gives the object of the first element with the id;
//   on:  the read fails with MSAXError::MGenericRead naming the id.
// A project file is such a database: its reader switches the option on, so that a reference can
// never silently land on the wrong object.
class KELSAX_EXPORT ISAXDatabaseContext : public ISAXContext
{
public:
    ~ISAXDatabaseContext() override;
    ESAXContextFactoryType GetType() const override;
    // Switches the unique-id check on or off.
    void SetRequireUniqueIds(bool on);
    bool GetRequireUniqueIds() const;

private:
    bool requireUniqueIds_ = false;
};
} // namespace SAXContexts

class KELSAX_EXPORT SAXContextsFactory
{
public:
    // A new context: eSAXContextDatabase gives an ISAXDatabaseContext, any other type a plain
    // ISAXContext. Never null; allocates.
    static std::shared_ptr<SAXContexts::ISAXContext> CreateSAXContext(ESAXContextFactoryType type);
};
} // namespace KelSAX
