// Internal: the naming rules that tie sources to channels. Exported for the channel
// composition code and the tests; not part of the public headers.
#pragma once

#include <zolo/export.h>

#include <string>

class UserSource;

// Name of the channel that user source `source` feeds as channel number `number`:
// "Video-Capture<n>" (capture port), "Video-Usb<n>" (USB), or for network sources the URL
// scheme and number in upper case, SRT with its mode ("SRT-LISTENER1", "SRT-CALLER1").
// 0 with `*name` set; -3 for a null source or name; -2 when the source cannot be mapped.
ZM_EXPORT int _zm_get_channel_name_by_user_source(int number, const UserSource* source,
                                                  std::string* name);
// Id of the video source of the channel that `source` feeds as channel number `number`.
// The id; -3 for a null source; -2 when it cannot be mapped or its channel does not exist;
// -5 when that channel has no video source.
ZM_EXPORT int _zm_get_source_id_by_user_source_id(int number, UserSource* source);

// The pattern a source name must match to fill channel `channel_id`'s slot.
ZM_EXPORT std::string _zm_channel_slot_pattern(int channel_id);
// The pattern by which `taken`, the name of a source another channel uses, claims slots;
// `independent` is "Engine"/"capture_source_independent". -1 when `taken` has neither an
// underscore nor a digit (no pattern can be built), else 0 with `*pattern` set.
ZM_EXPORT int _zm_taken_name_pattern(const std::string& taken, int independent,
                                     std::string* pattern);
// 1 when `taken` claims the slot of `candidate`, 0 when not, -1 when `taken` cannot be read
// (neither an underscore nor a digit).
ZM_EXPORT int _zm_taken_name_claims(const std::string& candidate, const std::string& taken,
                                    int independent);
// True when `name` fills channel `channel_id`'s slot pattern.
ZM_EXPORT bool _zm_fits_channel_slot(const std::string& name, int channel_id);
