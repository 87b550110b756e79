#include "Plugins.h"

#include <exception>
#include <set>
#include <stdexcept>

#include "tovu/util/Directory.h"
#include "tovu/util/DynamicLibrary.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Path.h"

namespace volume {

using namespace tovu::util;

// The handler's code is in the library, so the library goes last.
class Plugins::Plugin
{
public:
    explicit Plugin(std::string const& path)
    {
        library_.Load(path);
        auto const create = reinterpret_cast<MessageHandler* (*)()>(library_.GetProc("CreateMessageHandler"));
        handler_.reset(create());
        if (!handler_)
            throw std::runtime_error("it has no message handler");
    }

    MessageHandler const& GetHandler() const { return *handler_; }

private:
    DynamicLibrary library_;
    std::unique_ptr<MessageHandler> handler_;
};

Plugins::Plugins() = default;

Plugins::~Plugins() = default;

// In the order of their names, so that of two plug-ins for one message it is always the same one that counts.
void Plugins::Load(std::string const& folder)
{
    Directory directory(folder);
    Directory::Entry entry;
    std::set<std::string> names;
    for (bool more = directory.GetFirstEntry(entry); more; more = directory.GetNextEntry(entry)) {
        if (Path(entry.name).GetExtension() == "so")
            names.insert(Path(entry.name).GetFileName());
    }
    for (std::string const& name : names)
        LoadOne(MakePath(folder, name));
}

// A path without a slash would be searched for elsewhere.
void Plugins::LoadOne(std::string const& path)
{
    try {
        std::unique_ptr<Plugin> plugin(new Plugin(path.find('/') == std::string::npos ? "./" + path : path));
        std::string const name = plugin->GetHandler().GetName();
        if (!handlers_.emplace(name, &plugin->GetHandler()).second)
            throw std::runtime_error("the message " + name + " has a handler already");
        plugins_.push_back(plugin.get());
        static_cast<void>(plugin.release());
        TOVU_LOG(LoggerMgr::LEVEL_INFO, "The plug-in %s handles %s.\n", path.c_str(), name.c_str());
    } catch (std::exception const& exception) {
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "The plug-in %s is left out: %s\n", path.c_str(), exception.what());
    }
}

MessageHandler const* Plugins::Find(std::string const& name) const
{
    auto const handler = handlers_.find(name);
    return handler != handlers_.end() ? handler->second : nullptr;
}

}  // namespace volume
