#pragma once

/// What the plug-in library exports.
#define LIVE_EXPORT extern "C" __attribute__((visibility("default")))

/// The plug-in's name and version.
LIVE_EXPORT const char* __MODULE_string;
/// What the framework returned for the plug-in list entry.
LIVE_EXPORT int __cb_register_PluginLive;

/// [control] Registers the plug-in's class. The name is not used. A class that is registered
/// already is told of and left as it is.
LIVE_EXPORT void RegisterPluginLive(const char* name);
