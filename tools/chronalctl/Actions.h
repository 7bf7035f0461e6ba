#ifndef CHRONALCTL_ACTIONS_H
#define CHRONALCTL_ACTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "Arguments.h"
#include "SyncClient.h"
#include "TimeText.h"

/// The work of the commands. Each function throws Failure.
namespace chronal::ctl {

/// Sends one command and prints its answer, which is the report of that name.
void request(const Arguments& given, const char* answer, const SyncClient::Send& send);

/// What the service tells of the clocks at the local time that is given, unless that comes with its
/// deviation.
std::optional<tools::ClockChange> clockChange(const Arguments& given);

/// Prints only these fields of the settings.
void showSettings(const Arguments& given, const std::vector<std::string>& names);

/// Prints the zones of this machine's database, perhaps only those with names that match the text.
void listZones(const Arguments& given);

/// Prints all times, the time zone and the settings, in several requests.
void showStatus(const Arguments& given);

/// The service replaces all settings, so those that are not given are fetched first.
void changeSettings(const Arguments& given);

/// Prints changes of the connection, the current times of `sources`, and all other notifications
/// if `broadcasts`, until SIGINT, SIGTERM or the end that was given. The timeout is for the first
/// connection.
void monitor(const Arguments& given, const std::vector<ReferenceTimeId>& sources, bool broadcasts);

/// Reminds the user that a service in this process ends with it.
void noteSimulation(const Arguments& given);

} // namespace chronal::ctl

#endif
