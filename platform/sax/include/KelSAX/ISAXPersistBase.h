// The objects the reader hands elements to and the writer writes: references and persist objects.
#pragma once

#include <KelSAX/Export.h>
#include <string>

namespace KelSAX
{
class ISAXReader;
class ISAXWriter;

// Anything that can be referenced by id, or that asks to resolve its references after the document.
class KELSAX_EXPORT ISAXReference
{
public:
    virtual ~ISAXReference();
    // Called once after the whole document was read when registered with
    // ISAXReader::RegisterReferenceUser; look ids up with reader.LookupReference. May throw.
    virtual void ResolveReferences(ISAXReader& reader);
};

// An object that reads the children of an element and writes itself.
class KELSAX_EXPORT ISAXPersistBase : public virtual ISAXReference
{
public:
    ~ISAXPersistBase() override;
    // A child element named tag starts. true: taken (its value may be read, or it may be read in
    // place with another persist object; if it is not, its children come to this object too);
    // false: the element is skipped with its subtree. May throw (the read stops with that error).
    virtual bool HandleTag(const std::string& tag, ISAXReader& reader) = 0;
    // Nothing to resolve by default.
    void ResolveReferences(ISAXReader& reader) override;
    // Writes the object; false on failure. The default writes nothing and returns true.
    virtual bool Write(ISAXWriter& writer) const;
    // A child element that HandleTag took has ended (after its subtree). The default does nothing.
    virtual void EndTag(const std::string& tag, ISAXReader& reader);
};

// A persist object for a T held by reference (the T outlives the helper).
template <class T> class MSAXPersistHelper : public ISAXPersistBase
{
public:
    explicit MSAXPersistHelper(T& object) : object_(object) {}
    T& Get() { return object_; }
    const T& Get() const { return object_; }

protected:
    T& object_;
};
} // namespace KelSAX
