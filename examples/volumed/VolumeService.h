#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <xercesc/util/XercesDefs.hpp>

#include "Jobs.h"
#include "Options.h"
#include "Plugins.h"
#include "VolumeDatabase.h"
#include "common/MessageGuard.h"

namespace volume {

/// What the service can do, shared by all connections: the answer to every message but Send.
///
///   Echo             Echo, with the same content
///   GetInfo          Info, with hostName, processId and version
///   List path        Listing, with an Entry for each item of the folder but "." and ".."
///   Status volume    Status, with volume, freeSpace in bytes, status and action
///   MakeGuid count   Guids, with as many Guid elements, 1 without a count
///   RunJob name      Job, with name, and result and status of the program once it has ended, or cancelled="true"
///   CancelJob name   Cancelled, with name
///   others           what a plug-in answers
///
/// Threads: any may call everything.
class VolumeService
{
public:
    /// Looks whether the service can be set up as wanted, and throws std::runtime_error when it cannot.
    explicit VolumeService(Options const& options);

    /// Opens the database, loads the plug-ins and starts the workers: what a process does not take along when it leaves
    /// the terminal. Called once, before the first client is served.
    void Start();

    /// Ends the jobs, and with them the waiting in Handle.
    void Stop();

    /// True for the name of a message that Handle answers.
    bool IsHandled(std::string const& name) const;

    /// The answer to a message: a document in UTF-8. Throws Refusal, and what a plug-in throws.
    std::string Handle(xercesc::DOMNode const& element);

    /// The folder that files are sent from; empty when there is none.
    std::string const& GetSendFolder() const { return options_.sendFolder; }

    /// What looks at every message before it is parsed.
    MessageGuard& GetGuard() { return guard_; }

    /// See Jobs::HoldSpawns.
    std::unique_lock<std::mutex> HoldSpawns() { return jobs_->HoldSpawns(); }

private:
    std::string Status(xercesc::DOMNode const& element);
    std::string RunJob(xercesc::DOMNode const& element);
    std::string CancelJob(xercesc::DOMNode const& element);

    Options const options_;
    MessageGuard guard_;
    std::map<std::string, std::function<std::string(xercesc::DOMNode const&)>> const handlers_;  // its own messages
    Plugins plugins_;
    std::unique_ptr<VolumeDatabase> database_;  // null when there is none
    std::unique_ptr<Jobs> jobs_;                // null before Start
};

/// What GetInfo and Discover are answered with: `name` is the element's name, `more` goes behind the attributes.
std::string DescribeService(char const* name, std::string const& more);

}  // namespace volume
