#pragma once

#include <map>
#include <memory>
#include <string>

#include "common/MessageHandler.h"
#include "tovu/util/OwnerList.h"

namespace volume {

/// The message handlers from the plug-ins of a folder.
///
/// Threads: any, once everything is loaded.
class Plugins
{
public:
    /// No plug-ins.
    Plugins();
    Plugins(Plugins const&) = delete;
    Plugins& operator=(Plugins const&) = delete;
    ~Plugins();

    /// Loads every NAME.so of a folder. One that cannot be loaded, or whose message is handled already, is logged and
    /// left out.
    void Load(std::string const& folder);

    /// The handler for the document elements of that name; null when there is none.
    MessageHandler const* Find(std::string const& name) const;

private:
    class Plugin;

    void LoadOne(std::string const& path);

    tovu::util::OwnerList<Plugin> plugins_;
    std::map<std::string, MessageHandler const*> handlers_;
};

}  // namespace volume
