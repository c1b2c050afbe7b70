#pragma once

/// What the plug-in library exports.
#define RTMP_EXPORT extern "C" __attribute__((visibility("default")))

/// The plug-in's name and version.
RTMP_EXPORT const char* __MODULE_string;
/// What the framework returned for the plug-in list entry and for the command "rtmp".
RTMP_EXPORT int __cb_register_PluginRtmp;
RTMP_EXPORT int __register_cmd_rtmp;

/// [control] Registers the plug-in's classes: pusher, element, pipeline. The name is not used. A
/// class that is registered already is told of and left as it is.
RTMP_EXPORT void RegisterPluginRtmp(const char* name);

using RtmpOptionCallback = void (*)(const char* options);
/// [control] Stores the host's hook for option texts, unless `callback` is null. Returns the one
/// stored; null before there was any.
RTMP_EXPORT RtmpOptionCallback GetCbRegisterPluginRtmp(RtmpOptionCallback callback);
/// [control] Hands `options` to the stored hook; does nothing when there is none.
RTMP_EXPORT void RegisterOptPluginRtmp(const char* options);

/// [control] Starts a pusher service of the video-encoder selection `p0` (null: 1080p30 at 6 Mb/s)
/// to the built-in address. 1 when it was created, configured and started, else 0.
RTMP_EXPORT int fwRtmpPusher(const char* p0, const char* p1, const char* p2);
/// [control] Starts a service of class `p0` (null: "rtmp-server"). -1 when it could not be created,
/// else 0.
RTMP_EXPORT int fwRtmpService(const char* p0, const char* p1, const char* p2);
/// [control] Starts the client application `name`: the elements of `cfgs`, published to `url`. 1
/// when it plays, else 0.
RTMP_EXPORT int fwRtmpClientStart(const char* name, const char* url, const char* cfgs);
/// [control] Ends the client application `name`. 1 when there was one, else 0.
RTMP_EXPORT int fwRtmpClientStop(const char* name, const char* p1, const char* p2);
