// The process-wide plug-in registry of the native mesh format.
#include <KelSDK/Triangles/IO/MStlFileIOPlugin.h>

#include <mutex>

namespace KelSDK::Triangles::IO
{
namespace
{
std::mutex& RegistryMutex()
{
    static std::mutex mutex;
    return mutex;
}
} // namespace

MStlFileIOPlugin::MStlFileIOPlugin(const uint64_t& saveLoadOrder) : saveLoadOrder_(saveLoadOrder)
{
    std::list<MStlFileIOPlugin*>& plugins = GetPlugins();
    std::lock_guard<std::mutex> lock(RegistryMutex());
    plugins.push_back(this);
    // std::list::sort is a stable merge sort: equal orders keep their registration order.
    plugins.sort([](const MStlFileIOPlugin* a, const MStlFileIOPlugin* b)
                 { return a->GetSaveLoadOrder() < b->GetSaveLoadOrder(); });
}

MStlFileIOPlugin::~MStlFileIOPlugin() = default;

std::list<MStlFileIOPlugin*>& MStlFileIOPlugin::GetPlugins()
{
    // Function-local static: created once, thread-safe since C++11.
    static std::list<MStlFileIOPlugin*> plugins;
    return plugins;
}
} // namespace KelSDK::Triangles::IO
