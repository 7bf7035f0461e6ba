#ifndef CHRONALCTL_ACTIONS_H
#define CHRONALCTL_ACTIONS_H

#include "Arguments.h"
#include "SyncClient.h"

/// The work of the commands. Each function throws Failure.
namespace chronal::ctl {

/// Sends one command and prints its answer, which is the report of that name.
void request(const Arguments& given, const char* answer, const SyncClient::Send& send);

/// Prints all times, the time zone and the settings, in several requests.
void showStatus(const Arguments& given);

/// The service replaces all settings, so those that are not given are fetched first.
void changeSettings(const Arguments& given);

/// Prints all notifications, and the current times of the given sources.
void monitorAll(const Arguments& given);

/// Prints the notifications of one source.
void monitorSource(const Arguments& given);

} // namespace chronal::ctl

#endif
