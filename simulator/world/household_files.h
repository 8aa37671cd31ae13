// The files that the platform library reads in a household: settings, roster, catalogue.
//
// Each is replaced whole by a rename, as the daemon may read it at any moment.
#ifndef SIMULATOR_WORLD_HOUSEHOLD_FILES_H
#define SIMULATOR_WORLD_HOUSEHOLD_FILES_H

#include "simulator/world/devices_and_apps.h"

constexpr const char *settings_path = "/tmp/household/settings.json";
constexpr const char *state_directory = "/tmp/household/state";
constexpr const char *runtime_directory = "/tmp/household/run";

// Makes the directories and the settings file. All return false after saying on standard error what failed.
bool write_settings();
bool write_roster(const std::vector<device_entry> &devices);
// The apps that are known at the moment.
bool write_catalogue(const std::vector<app_entry> &apps, moment now);

#endif
