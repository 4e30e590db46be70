// Stream records: one output of the appliance (recording file, network push, preview).
#pragma once

#include <zolo/export.h>

// A stream as the API hands it out: a flat, fixed-size record copied by value, zeroed before
// it is filled. Texts are zero-terminated and cut to their capacity. The fields duration,
// start_time, stop_time and error come from engine replies, not from the database.
struct zm_stream {
  int id;
  char name[512];
  char type[512];
  int channel_id;
  char channel_name[512];
  int enable;
  int enable_option1;
  int codec_preset_id;
  char codec_preset_name[512];
  char container[512];
  int audio_shift;
  char destination[2048];
  char aux_text[512];
  int duration;
  int start_time;
  int stop_time;
  int enable_option2;
  int enable_option3;
  int error;
  int encryption;
  int key_length;
  char passphrase[512];
  int latency;
  int source_port;
  int suspend;
  int multicast;
  int ttl;
  char netmask[512];
  char netprefix[512];
  int video_source_id;
  int audio_source_id;
  char ndi_group_name[512];
  char ndi_discovery_server[512];
  int ndi_stream_bandwidth;
};
