// libzolo_media: the control library of the media engine.
//
// This umbrella header declares every exported function, record, enumeration, signal
// parser and utility. Functions return 0 on success and a negative result code on
// failure: -1 general failure, -2 refused, -3 missing or bad argument, -4 engine state
// does not allow the call, -5 not found; engine replies map down to -15.
#pragma once

#include <zolo/config.h>
#include <zolo/export.h>
#include <zolo/media/audio.h>
#include <zolo/media/codecs.h>
#include <zolo/media/errors.h>
#include <zolo/media/frame.h>
#include <zolo/media/mixer_config.h>
#include <zolo/media/mixer_live.h>
#include <zolo/media/recordings.h>
#include <zolo/media/signal.h>
#include <zolo/media/sources.h>
#include <zolo/media/storage_info.h>
#include <zolo/media/streams.h>
#include <zolo/signals.h>
#include <zolo/storage.h>
#include <zolo/url.h>
#include <zolo/utils.h>
#include <zolo/version.h>
#include <zolo/yuvjpeg.h>
