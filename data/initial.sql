-- Media configuration database: schema and the default configuration of the appliance.
-- Run once by MediaModel::Initialize when the database file does not exist yet.

-- ===== settings, sources, channels, streams, metadata, codecs =====

-- Named settings of the appliance; values are text, numbers are written in base 10.
CREATE TABLE setting (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  value TEXT NOT NULL DEFAULT ''
);

INSERT INTO setting (name, value) VALUES
  ('storage', 'SD'),
  ('sub_storage', 'USB0'),
  ('cycling', '0'),
  ('framerate_mode', '0'),
  ('backup', '0'),
  ('interactive', '0'),
  ('recording_mode', '0');

-- Sources. The device's own inputs (channel_source) and inputs that users define
-- (user_source) have the same columns. type: 0 video, 1 audio. category: 0 capture port,
-- 1 network input the device pulls, 2 file, 3 network input pushed to the device (listener),
-- 4 mixer, 5 USB device, 6 placeholder. parameters and authentication are JSON objects; the
-- three flags are fixed, available (offered to channels) and enabled.
CREATE TABLE channel_source (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  type INTEGER NOT NULL DEFAULT 0,
  category INTEGER NOT NULL DEFAULT 0,
  url TEXT NOT NULL DEFAULT '',
  sub_address TEXT NOT NULL DEFAULT '',
  authentication TEXT NOT NULL DEFAULT '{}',
  parameters TEXT NOT NULL DEFAULT '{}',
  fixed INTEGER NOT NULL DEFAULT 1,
  available INTEGER NOT NULL DEFAULT 1,
  enabled INTEGER NOT NULL DEFAULT 1,
  visible INTEGER NOT NULL DEFAULT 1,
  int_attr1 INTEGER NOT NULL DEFAULT 0,
  int_attr2 INTEGER NOT NULL DEFAULT 0,
  extra TEXT NOT NULL DEFAULT '',
  extra2 TEXT NOT NULL DEFAULT ''
);
CREATE INDEX channel_source_sub_address ON channel_source (sub_address);

CREATE TABLE user_source (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  type INTEGER NOT NULL DEFAULT 0,
  category INTEGER NOT NULL DEFAULT 1,
  url TEXT NOT NULL DEFAULT '',
  sub_address TEXT NOT NULL DEFAULT '',
  authentication TEXT NOT NULL DEFAULT '{}',
  parameters TEXT NOT NULL DEFAULT '{}',
  fixed INTEGER NOT NULL DEFAULT 1,
  available INTEGER NOT NULL DEFAULT 1,
  enabled INTEGER NOT NULL DEFAULT 1,
  visible INTEGER NOT NULL DEFAULT 1,
  int_attr1 INTEGER NOT NULL DEFAULT 0,
  int_attr2 INTEGER NOT NULL DEFAULT 0,
  extra TEXT NOT NULL DEFAULT '',
  extra2 TEXT NOT NULL DEFAULT ''
);

INSERT INTO channel_source
  (id, name, type, category, url, sub_address, parameters, authentication, fixed, available, visible)
VALUES
  (1, 'Capture1', 0, 0, 'capture://video/0', 'SC0710:RAW 01.00 0401f717', '{"resolution": "1920x1080", "frame_rate": 60, "rotate": 0, "audio_delay": 0}', '{}', 1, 1, 1),
  (2, 'Capture2', 0, 0, 'capture://video/1', 'SC0710:RAW 00.00 0404f71d', '{"resolution": "1920x1080", "frame_rate": 60, "rotate": 0, "audio_delay": 0}', '{}', 1, 1, 1),
  (3, 'Capture3', 0, 0, 'capture://video/2', 'SC0710:RAW 00.01 0404f71d', '{"resolution": "1920x1080", "frame_rate": 60, "rotate": 0, "audio_delay": 0}', '{}', 1, 1, 1),
  (4, 'Capture4', 0, 0, 'capture://video/3', 'SC0710:RAW 00.02 0404f71d', '{"resolution": "1920x1080", "frame_rate": 60, "rotate": 0, "audio_delay": 0}', '{}', 1, 1, 1),
  (5, 'Capture5', 0, 0, 'capture://video/4', 'SC0710:RAW 00.03 0404f71d', '{"resolution": "1920x1080", "frame_rate": 60, "rotate": 0, "audio_delay": 0}', '{}', 1, 1, 1),
  (6, 'Usb1', 0, 5, 'v4l2:///dev/video0', '', '{"resolution": "1280x720", "codec": "MJPEG", "frame_rate": 30, "rotate": 0}', '{}', 1, 1, 1),
  (7, 'RTSP1', 0, 1, 'rtsp://0.0.0.0/fake', '', '{"rotate": 0, "audio_delay": 0}', '{}', 1, 1, 1),
  (8, 'SRT-LISTENER1', 0, 3, 'srt://0.0.0.0:9000?mode=listener', '', '{"latency": 120, "source_port": 9000, "audio_delay": 0}', '{"encryption": 0, "key_length": 16, "passphrase": ""}', 1, 1, 1),
  (9, 'Movie1', 0, 2, 'file:///usr/share/media/movie/default.mp4', '', '{}', '{}', 1, 1, 1),
  (10, 'NDI1', 0, 1, 'ndi://ZOLO-<MAC_ADDR>/live', '', '{"rotate": 0}', '{}', 1, 1, 1),
  (11, 'Placeholder1', 0, 6, 'rtsp://0.0.0.0/fake', '', '{}', '{}', 1, 0, 0),
  (12, 'Capture-Audio1', 1, 0, 'capture://audio/0', 'SC0710:RAW 01.00 0401f717', '{"audio_delay": 0}', '{}', 1, 1, 1),
  (13, 'Capture-Audio2', 1, 0, 'capture://audio/1', 'SC0710:RAW 00.00 0404f71d', '{"audio_delay": 0}', '{}', 1, 1, 1),
  (14, 'Capture-Audio3', 1, 0, 'capture://audio/2', 'SC0710:RAW 00.01 0404f71d', '{"audio_delay": 0}', '{}', 1, 1, 1),
  (15, 'Capture-Audio4', 1, 0, 'capture://audio/3', 'SC0710:RAW 00.02 0404f71d', '{"audio_delay": 0}', '{}', 1, 1, 1),
  (16, 'Capture-Audio5', 1, 0, 'capture://audio/4', 'SC0710:RAW 00.03 0404f71d', '{"audio_delay": 0}', '{}', 1, 1, 1),
  (17, 'Usb-Audio1', 1, 5, 'alsa://hw:1,0', '', '{"audio_delay": 0}', '{}', 1, 1, 1),
  (18, 'Mix-Audio1', 1, 4, 'zolo://audio/mixer/0', '', '{}', '{}', 1, 1, 1),
  (19, 'Line-In1', 1, 0, 'alsa://hw:0,0', '', '{"audio_delay": 0}', '{}', 1, 1, 1),
  (20, 'SRT-CALLER1', 0, 1, 'srt://0.0.0.0/fake?mode=caller', '', '{"latency": 120, "audio_delay": 0}', '{"encryption": 0, "key_length": 16, "passphrase": ""}', 1, 1, 1),
  (21, 'RTMP1', 0, 3, 'rtmp://0.0.0.0/fake', '', '{"source_port": 1935, "audio_delay": 0}', '{}', 1, 1, 1);

INSERT INTO user_source
  (id, name, type, category, url, parameters, authentication, fixed, available, visible)
VALUES
  (1, 'Lobby Camera', 0, 1, 'rtsp://192.168.1.64:554/stream1', '{"rotate": 0, "audio_delay": 0, "preview_dest": ""}', '{}', 1, 1, 1),
  (2, 'Remote Studio', 0, 3, 'srt://0.0.0.0:9001?mode=listener', '{"latency": 200, "source_port": 9001, "audio_delay": 0}', '{"encryption": 1, "key_length": 16, "passphrase": "change-me-please"}', 1, 1, 1),
  (3, 'Stage NDI', 0, 1, 'ndi://STAGE-PC/output', '{"rotate": 0}', '{}', 1, 1, 1),
  (4, 'Spare SRT caller', 0, 1, 'srt://203.0.113.10:9002?mode=caller', '{"latency": 120}', '{"encryption": 0}', 1, 1, 0),
  (5, 'Field Encoder', 0, 3, 'rtmp://0.0.0.0:1935/live/field', '{"source_port": 1935, "audio_delay": 0}', '{}', 1, 1, 1),
  (6, 'Document Camera', 0, 5, 'v4l2:///dev/video1', '{"resolution": "1920x1080", "codec": "MJPEG", "frame_rate": 30, "rotate": 0}', '{}', 1, 1, 1);

-- Channels bind at most one video source, one audio source, one video user source and one
-- audio user source; removing a source clears the link. Channels are named after the input
-- that feeds them and their number (Video-Capture2, Video-Usb1, RTSP1, SRT-LISTENER1); every
-- user source has the channel its kind and number 1 name.
CREATE TABLE channel (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  video_source_id INTEGER REFERENCES channel_source (id) ON DELETE SET NULL,
  audio_source_id INTEGER REFERENCES channel_source (id) ON DELETE SET NULL,
  video_user_source_id INTEGER REFERENCES user_source (id) ON DELETE SET NULL,
  audio_user_source_id INTEGER REFERENCES user_source (id) ON DELETE SET NULL,
  preview_url TEXT NOT NULL DEFAULT '',
  ordinal TEXT NOT NULL DEFAULT '',
  attribute INTEGER NOT NULL DEFAULT 0,
  visible INTEGER NOT NULL DEFAULT 1
);

INSERT INTO channel
  (id, name, video_source_id, audio_source_id, video_user_source_id, audio_user_source_id, ordinal, attribute)
VALUES
  (1, 'Video-Capture1', 1, 12, NULL, NULL, '1', 0), (2, 'Video-Capture2', 2, 13, NULL, NULL, '2', 0),
  (3, 'Video-Capture3', 3, 14, NULL, NULL, '3', 0), (4, 'Video-Capture4', 4, 15, NULL, NULL, '4', 0),
  (5, 'Video-Capture5', 5, 16, NULL, NULL, '5', 0), (6, 'Video-Usb1', 6, 17, 6, NULL, '1', 0),
  (7, 'RTSP1', 7, 7, 1, NULL, '1', 0), (8, 'SRT-LISTENER1', 8, 8, 2, 2, '1', 0),
  (9, 'Movie', 9, 9, NULL, NULL, '', 0),
  (10, 'Audio-Mix', NULL, 18, NULL, NULL, '1', 1), (11, 'Audio-Usb', NULL, 17, NULL, NULL, '1', 1),
  (12, 'NDI1', 10, 10, 3, NULL, '1', 0), (13, 'SRT-CALLER1', 20, 20, 4, 4, '1', 0),
  (14, 'RTMP1', 21, 21, 5, 5, '1', 0);

-- The sources each channel may switch to: JSON objects of id lists under "video_sources"
-- and "audio_sources", for device sources and for user sources.
CREATE TABLE channel_sources (
  id INTEGER PRIMARY KEY,
  channel_id INTEGER NOT NULL UNIQUE REFERENCES channel (id) ON DELETE CASCADE,
  sources TEXT NOT NULL DEFAULT '{}',
  user_sources TEXT NOT NULL DEFAULT '{}'
);

INSERT INTO channel_sources (channel_id, sources, user_sources) VALUES
  (1, '{"video_sources": [1], "audio_sources": [12, 19]}', '{"video_sources": []}'),
  (2, '{"video_sources": [2], "audio_sources": [13, 19]}', '{"video_sources": []}'),
  (3, '{"video_sources": [3], "audio_sources": [14, 19]}', '{"video_sources": []}'),
  (4, '{"video_sources": [4], "audio_sources": [15, 19]}', '{"video_sources": []}'),
  (5, '{"video_sources": [5], "audio_sources": [16, 19]}', '{"video_sources": []}'),
  (6, '{"video_sources": [6], "audio_sources": [17]}', '{"video_sources": [6]}'),
  (7, '{"video_sources": [7, 10, 11], "audio_sources": [7]}', '{"video_sources": [1, 3, 4], "audio_sources": [1]}'),
  (8, '{"video_sources": [8, 11], "audio_sources": [8]}', '{"video_sources": [2], "audio_sources": [2]}'),
  (9, '{"video_sources": [9], "audio_sources": [9]}', '{"video_sources": []}'),
  (10, '{"audio_sources": [18]}', '{}'),
  (11, '{"audio_sources": [17]}', '{}'),
  (12, '{"video_sources": [10], "audio_sources": [10]}', '{"video_sources": [3]}'),
  (13, '{"video_sources": [20], "audio_sources": [20]}', '{"video_sources": [4], "audio_sources": [4]}'),
  (14, '{"video_sources": [21], "audio_sources": [21]}', '{"video_sources": [5], "audio_sources": [5]}');

-- Codecs: type 0 video, 1 audio. parameters is a JSON array of {"name", "value"} objects:
-- the settings a codec accepts and their allowed values.
CREATE TABLE codec (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  type INTEGER NOT NULL,
  parameters TEXT NOT NULL DEFAULT '[]'
);

INSERT INTO codec (id, name, type, parameters) VALUES
  (1, 'H.264', 0, '[{"name": "profile", "value": "baseline,main,high"}, {"name": "bitrate", "value": "500-50000"}, {"name": "gop", "value": "1-300"}]'),
  (2, 'H.265', 0, '[{"name": "profile", "value": "main"}, {"name": "bitrate", "value": "500-40000"}, {"name": "gop", "value": "1-300"}]'),
  (3, 'RAW', 0, '[]'),
  (4, 'AAC', 1, '[{"name": "bitrate", "value": "64,96,128,192,256,320"}, {"name": "samplerate", "value": "44100,48000"}]'),
  (5, 'PCM', 1, '[{"name": "samplerate", "value": "48000"}]'),
  (6, 'OPUS', 1, '[{"name": "bitrate", "value": "64,96,128"}]');

-- Codec parameter presets; the codec parameters are JSON objects. Built-in presets come
-- with the appliance: users may not change them and they are never removed.
CREATE TABLE codec_parameter_preset (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  video_codec_id INTEGER REFERENCES codec (id),
  audio_codec_id INTEGER REFERENCES codec (id),
  video_codec_parameter TEXT NOT NULL DEFAULT '{}',
  audio_codec_parameter TEXT NOT NULL DEFAULT '{}',
  builtin INTEGER NOT NULL DEFAULT 0,
  visible INTEGER NOT NULL DEFAULT 1
);

INSERT INTO codec_parameter_preset
  (id, name, video_codec_id, audio_codec_id, video_codec_parameter, audio_codec_parameter, builtin)
VALUES
  (1, '1080p60 High', 1, 4, '{"width":1920,"height":1080,"frame_rate":60,"bitrate":12000,"gop":60,"profile":"high"}', '{"bitrate":256,"samplerate":48000,"channels":2}', 1),
  (2, '1080p30 HEVC', 2, 4, '{"width":1920,"height":1080,"frame_rate":30,"bitrate":6000,"gop":30}', '{"bitrate":128,"samplerate":48000,"channels":2}', 1),
  (3, '720p30 Stream', 1, 4, '{"width":1280,"height":720,"frame_rate":30,"bitrate":4000,"gop":60,"profile":"main"}', '{"bitrate":128,"samplerate":48000,"channels":2}', 1),
  (4, 'NDI Preview Profile', 1, 4, '{"width":640,"height":360,"frame_rate":30,"bitrate":1000,"gop":30}', '{"bitrate":96,"samplerate":48000,"channels":2}', 1),
  (5, 'Raw Capture', 3, 5, '{"width":1920,"height":1080,"frame_rate":60}', '{"samplerate":48000,"channels":2}', 1),
  (6, 'My Event 1080p', 1, 4, '{"width":1920,"height":1080,"frame_rate":50,"bitrate":10000,"gop":50}', '{"bitrate":192,"samplerate":48000,"channels":2}', 0);

-- Outputs of the engine. type: "file", "network", "preview", "display", "audio".
-- parameters and authentication are JSON objects. File streams keep "bitrate" (kilobits
-- per second, video and audio together), "sub_storage" (1: written to the sub storage) and
-- "max_duration" (seconds). Hidden streams are the engine's own and left out of visible
-- queries.
CREATE TABLE stream (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL,
  type TEXT NOT NULL,
  channel_id INTEGER REFERENCES channel (id) ON DELETE SET NULL,
  codec_parameter_preset_id INTEGER REFERENCES codec_parameter_preset (id) ON DELETE SET NULL,
  container TEXT NOT NULL DEFAULT '',
  destination TEXT NOT NULL DEFAULT '',
  aux_text TEXT NOT NULL DEFAULT '',
  enable INTEGER NOT NULL DEFAULT 1,
  enable_option1 INTEGER NOT NULL DEFAULT 0,
  enable_option2 INTEGER NOT NULL DEFAULT 0,
  enable_option3 INTEGER NOT NULL DEFAULT 0,
  suspend INTEGER NOT NULL DEFAULT 0,
  hidden INTEGER NOT NULL DEFAULT 0,
  parameters TEXT NOT NULL DEFAULT '{}',
  authentication TEXT NOT NULL DEFAULT '{}'
);
CREATE INDEX stream_type_name ON stream (type, name);
CREATE INDEX stream_name ON stream (name);

INSERT INTO stream
  (name, type, channel_id, codec_parameter_preset_id, container, destination, enable, parameters, authentication)
VALUES
  ('movie1', 'file', 1, 1, 'mp4', 'file:///media/SD/recordings', 1, '{"bitrate": 12288, "sub_storage": 0, "max_duration": 28800, "audio_shift": 0}', '{}'),
  ('movie2', 'file', 2, 2, 'mp4', 'file:///media/SD/recordings', 0, '{"bitrate": 6144, "sub_storage": 0, "max_duration": 28800}', '{}'),
  ('backup1', 'file', 1, 3, 'mp4', 'file:///media/USB0/recordings', 0, '{"bitrate": 4096, "sub_storage": 1, "max_duration": 28800}', '{}'),
  ('rtsp1', 'network', 1, 3, '', 'rtsp://0.0.0.0/fake', 1, '{"source_port": 554}', '{}'),
  ('rtmp1', 'network', 1, 3, 'flv', 'rtmp://0.0.0.0/fake', 0, '{}', '{}'),
  ('srt1', 'network', 1, 3, 'ts', 'srt://0.0.0.0/fake?mode=caller', 0, '{"latency": 120, "source_port": 9000}', '{"encryption": 0, "key_length": 16, "passphrase": ""}'),
  ('ndi1', 'network', 1, 6, '', 'ndi://0.0.0.0', 0, '{"ndi_group_name": "public", "ndi_discovery_server": "", "ndi_stream_bandwidth": 1}', '{}'),
  ('webrtc1', 'network', 1, 3, '', 'webrtc://0.0.0.0/live', 0, '{}', '{}'),
  ('udp1', 'network', 1, 3, 'ts', 'udp://239.1.1.1:5000', 0, '{"multicast": 1, "ttl": 16, "netmask": "255.255.255.0", "netprefix": ""}', '{}'),
  ('preview', 'preview', 1, 4, '', 'rtsp://0.0.0.0:8554/preview', 1, '{}', '{}'),
  ('preview1', 'preview', 2, 4, '', 'rtsp://0.0.0.0:8554/preview1', 1, '{}', '{}'),
  ('preview2', 'preview', 3, 4, '', 'rtsp://0.0.0.0:8554/preview2', 1, '{}', '{}'),
  ('preview-ndi-sub', 'preview', 1, 4, '', 'ndi://0.0.0.0', 0, '{}', '{}'),
  ('display1', 'display', 1, 5, '', 'display://hdmi/0', 1, '{"brightness": 50, "contrast": 50, "saturation": 50, "hue": 0}', '{}'),
  ('audio-in1', 'audio', 10, NULL, '', '', 1, '{"volume": 80, "mute": 0, "audio_type": 1, "gain": 0, "noise_reduction": 0}', '{}'),
  ('audio-out1', 'audio', 10, NULL, '', 'audio://line-out/0', 1, '{"volume": 80, "mute": 0, "audio_type": 0, "monitor_mode": 1, "monitor_duration_threshold": 10, "monitor_level_threshold": 60}', '{}'),
  ('sched-rtmp1', 'network', 1, 3, 'flv', 'rtmp://0.0.0.0/fake', 1, '{}', '{}'),
  ('sched-rtmp2', 'network', 1, 3, 'flv', 'rtmp://0.0.0.0/fake', 1, '{}', '{}'),
  ('backupmeta', 'file', NULL, NULL, '', '', 0, '{}', '{}');

-- Metadata keys and rows; a row without a stream is a default for every stream.
CREATE TABLE stream_metadata_key (
  id INTEGER PRIMARY KEY,
  key TEXT NOT NULL UNIQUE
);

CREATE TABLE stream_metadata (
  id INTEGER PRIMARY KEY,
  stream_id INTEGER REFERENCES stream (id) ON DELETE CASCADE,
  key_id INTEGER NOT NULL REFERENCES stream_metadata_key (id) ON DELETE CASCADE,
  value TEXT NOT NULL DEFAULT ''
);

INSERT INTO stream_metadata_key (id, key) VALUES (1, 'Title'), (2, 'Presenter'), (3, 'Location');
INSERT INTO stream_metadata (stream_id, key_id, value) VALUES
  (NULL, 1, 'Untitled'), (NULL, 2, ''), (NULL, 3, 'Studio A'),
  ((SELECT id FROM stream WHERE name = 'backupmeta'), 1, 'Backup recording'),
  ((SELECT id FROM stream WHERE name = 'backupmeta'), 3, 'Studio A');

-- The engine's own low-rate preview of each input channel (hidden): a network stream named
-- "preview-…", enabled with its first option set, whose address is the channel's preview
-- URL. NDI1 has none and is previewed from its source's own address.
INSERT INTO stream
  (name, type, channel_id, codec_parameter_preset_id, destination, enable, enable_option1, hidden)
VALUES
  ('preview-capture1', 'network', 1, 4, 'rtsp://zolo-<MAC_ADDR>.local:8554/preview/capture1', 1, 1, 1),
  ('preview-capture2', 'network', 2, 4, 'rtsp://zolo-<MAC_ADDR>.local:8554/preview/capture2', 1, 1, 1),
  ('preview-capture3', 'network', 3, 4, 'rtsp://zolo-<MAC_ADDR>.local:8554/preview/capture3', 1, 1, 1),
  ('preview-capture4', 'network', 4, 4, 'rtsp://zolo-<MAC_ADDR>.local:8554/preview/capture4', 1, 1, 1),
  ('preview-capture5', 'network', 5, 4, 'rtsp://zolo-<MAC_ADDR>.local:8554/preview/capture5', 1, 1, 1),
  ('preview-usb1', 'network', 6, 4, 'rtsp://zolo-<MAC_ADDR>.local:8554/preview/usb1', 1, 1, 1),
  ('preview-rtsp1', 'network', 7, 4, 'rtsp://zolo-<MAC_ADDR>.local:8554/preview/rtsp1', 1, 1, 1),
  ('preview-srt-listener1', 'network', 8, 4, 'rtsp://zolo-<MAC_ADDR>.local:8554/preview/srt-listener1', 1, 1, 1),
  ('preview-srt-caller1', 'network', 13, 4, 'rtsp://zolo-<MAC_ADDR>.local:8554/preview/srt-caller1', 1, 1, 1),
  ('preview-rtmp1', 'network', 14, 4, 'rtsp://zolo-<MAC_ADDR>.local:8554/preview/rtmp1', 1, 1, 1);

-- ===== end of settings, sources, channels, streams, metadata, codecs =====

-- ===== mixers, layouts, assets, themes =====

-- Mixers, their configurations (layouts and audio mixes), mixer assets and themes.
-- Windows of a layout name their sources by id, audio mixes their channels by id, and
-- mixers their output streams by name: plain values, not foreign keys into the source,
-- channel and stream tables, so this part loads and changes on its own.
-- Configurations, assets and themes are fixed pools of slots: rows are taken into use
-- ("enabled") and freed again, never inserted or deleted by the library.

-- Layout kinds (type 0, video) and the audio mix group (type 1). The "Display" group
-- holds the local display's layouts; groups made after it carry no preview image.
CREATE TABLE mixer_config_group (
  id INTEGER PRIMARY KEY,
  type INTEGER NOT NULL,
  name TEXT NOT NULL,
  UNIQUE (type, name)
);

-- A configuration slot: a layout (type 0) or an audio mix (type 1). Free slots have
-- enabled and custom clear and an empty content.
CREATE TABLE mixer_config (
  id INTEGER PRIMARY KEY,
  type INTEGER NOT NULL,
  group_id INTEGER REFERENCES mixer_config_group (id) ON DELETE SET NULL,
  name TEXT NOT NULL DEFAULT '',
  content TEXT NOT NULL DEFAULT '',
  rank INTEGER NOT NULL DEFAULT -1,
  enabled INTEGER NOT NULL DEFAULT 0 CHECK (enabled IN (0, 1)),
  custom INTEGER NOT NULL DEFAULT 0 CHECK (custom IN (0, 1))
);
CREATE INDEX mixer_config_by_type ON mixer_config (type, enabled, custom);
CREATE INDEX mixer_config_by_group ON mixer_config (group_id);

-- Asset slots: type 0 background, 1 foreground (intermission pictures among them),
-- 2 overlay and logo, 3 system overlay. The file is `name` in the folder `path`.
CREATE TABLE mixer_asset (
  id INTEGER PRIMARY KEY,
  type INTEGER NOT NULL CHECK (type BETWEEN 0 AND 3),
  name TEXT NOT NULL DEFAULT '',
  path TEXT NOT NULL DEFAULT '',
  origin TEXT NOT NULL DEFAULT '',
  origins TEXT NOT NULL DEFAULT '',
  location TEXT NOT NULL DEFAULT '',
  content TEXT NOT NULL DEFAULT '',
  enabled INTEGER NOT NULL DEFAULT 0 CHECK (enabled IN (0, 1)),
  rank INTEGER NOT NULL DEFAULT -1
);
CREATE INDEX mixer_asset_by_type ON mixer_asset (type, enabled);

-- Theme slots: one layout, one background and one overlay under a name.
CREATE TABLE theme (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL DEFAULT '',
  layout_id INTEGER REFERENCES mixer_config (id) ON DELETE SET NULL,
  background_id INTEGER REFERENCES mixer_asset (id) ON DELETE SET NULL,
  overlay_id INTEGER REFERENCES mixer_asset (id) ON DELETE SET NULL,
  enabled INTEGER NOT NULL DEFAULT 0 CHECK (enabled IN (0, 1)),
  rank INTEGER NOT NULL DEFAULT -1
);
CREATE INDEX theme_by_layout ON theme (layout_id);
CREATE INDEX theme_by_background ON theme (background_id);
CREATE INDEX theme_by_overlay ON theme (overlay_id);

-- The engine's mixers (type 0 video, 1 audio, named by URI) and what each shows now.
CREATE TABLE mixer (
  id INTEGER PRIMARY KEY,
  type INTEGER NOT NULL,
  name TEXT NOT NULL,
  config_id INTEGER REFERENCES mixer_config (id) ON DELETE SET NULL,
  background_id INTEGER REFERENCES mixer_asset (id) ON DELETE SET NULL,
  foreground_id INTEGER REFERENCES mixer_asset (id) ON DELETE SET NULL,
  overlay_id INTEGER REFERENCES mixer_asset (id) ON DELETE SET NULL,
  system_overlay_id INTEGER REFERENCES mixer_asset (id) ON DELETE SET NULL,
  theme_id INTEGER REFERENCES theme (id) ON DELETE SET NULL,
  UNIQUE (type, name)
);

-- Output streams (by name) a mixer feeds: display outputs, audio outputs.
CREATE TABLE mixer_output (
  mixer_id INTEGER NOT NULL REFERENCES mixer (id) ON DELETE CASCADE,
  position INTEGER NOT NULL,
  stream TEXT NOT NULL,
  PRIMARY KEY (mixer_id, position)
);
CREATE INDEX mixer_output_by_stream ON mixer_output (stream);

INSERT INTO mixer_config_group (id, type, name) VALUES
  (1, 0, 'Single'),
  (2, 0, 'Dual'),
  (3, 0, 'PIP'),
  (4, 0, 'PBP'),
  (5, 0, 'Triple'),
  (6, 0, 'Quad'),
  (7, 0, 'Pentuple'),
  (8, 0, 'Hextuple'),
  (9, 0, 'Septuple'),
  (10, 0, 'Octuple'),
  (11, 0, 'Nonuple'),
  (12, 0, 'Manual'),
  (13, 0, 'Display'),
  (14, 1, 'Audio');

-- Layouts of the capture inputs HDMI1 to HDMI4 and SDI1 (sources 1 to 5 of the channels
-- Video-Capture1 to Video-Capture5), by kind. Windows: fractions of the picture; crop 0
-- fits the source into its window, 1 fills it and crops.
INSERT INTO mixer_config (id, type, group_id, name, content, rank, enabled, custom) VALUES
  (1, 0, 1, 'HDMI1', '{"layout":[{"id":1,"x":0,"y":0,"z":0,"w":1,"h":1,"crop":0}]}', 1, 1, 0),
  (2, 0, 1, 'HDMI2', '{"layout":[{"id":2,"x":0,"y":0,"z":0,"w":1,"h":1,"crop":0}]}', 2, 1, 0),
  (3, 0, 1, 'HDMI3', '{"layout":[{"id":3,"x":0,"y":0,"z":0,"w":1,"h":1,"crop":0}]}', 3, 1, 0),
  (4, 0, 1, 'HDMI4', '{"layout":[{"id":4,"x":0,"y":0,"z":0,"w":1,"h":1,"crop":0}]}', 4, 1, 0),
  (5, 0, 1, 'SDI1', '{"layout":[{"id":5,"x":0,"y":0,"z":0,"w":1,"h":1,"crop":0}]}', 5, 1, 0),
  (6, 0, 2, 'HDMI1 | HDMI2', '{"layout":[{"id":1,"x":0,"y":0.25,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":2,"x":0.5,"y":0.25,"z":0,"w":0.5,"h":0.5,"crop":0}]}', 1, 1, 0),
  (7, 0, 2, 'HDMI3 | HDMI4', '{"layout":[{"id":3,"x":0,"y":0.25,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":4,"x":0.5,"y":0.25,"z":0,"w":0.5,"h":0.5,"crop":0}]}', 2, 1, 0),
  (8, 0, 2, 'HDMI1 | HDMI2 cropped', '{"layout":[{"id":1,"x":0,"y":0,"z":0,"w":0.5,"h":1,"crop":1},{"id":2,"x":0.5,"y":0,"z":0,"w":0.5,"h":1,"crop":1}]}', 3, 1, 0),
  (9, 0, 3, 'HDMI1 with HDMI2', '{"layout":[{"id":1,"x":0,"y":0,"z":0,"w":1,"h":1,"crop":0},{"id":2,"x":0.7,"y":0.7,"z":1,"w":0.25,"h":0.25,"crop":0}]}', 1, 1, 0),
  (10, 0, 3, 'SDI1 with HDMI1', '{"layout":[{"id":5,"x":0,"y":0,"z":0,"w":1,"h":1,"crop":0},{"id":1,"x":0.7,"y":0.7,"z":1,"w":0.25,"h":0.25,"crop":0}]}', 2, 1, 0),
  (11, 0, 4, 'HDMI1 beside HDMI2', '{"layout":[{"id":1,"x":0,"y":0.125,"z":0,"w":0.75,"h":0.75,"crop":0},{"id":2,"x":0.75,"y":0.375,"z":0,"w":0.25,"h":0.25,"crop":0}]}', 1, 1, 0),
  (12, 0, 4, 'HDMI2 beside HDMI1', '{"layout":[{"id":2,"x":0,"y":0.125,"z":0,"w":0.75,"h":0.75,"crop":0},{"id":1,"x":0.75,"y":0.375,"z":0,"w":0.25,"h":0.25,"crop":0}]}', 2, 1, 0),
  (13, 0, 5, 'HDMI1, HDMI2 and HDMI3', '{"layout":[{"id":1,"x":0,"y":0.25,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":2,"x":0.5,"y":0,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":3,"x":0.5,"y":0.5,"z":0,"w":0.5,"h":0.5,"crop":0}]}', 1, 1, 0),
  (14, 0, 6, 'HDMI1 to HDMI4', '{"layout":[{"id":1,"x":0,"y":0,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":2,"x":0.5,"y":0,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":3,"x":0,"y":0.5,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":4,"x":0.5,"y":0.5,"z":0,"w":0.5,"h":0.5,"crop":0}]}', 1, 1, 0),
  (15, 0, 7, 'All inputs', '{"layout":[{"id":1,"x":0,"y":0,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":2,"x":0.5,"y":0,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":3,"x":0,"y":0.5,"z":0,"w":0.3333333333333333,"h":0.5,"crop":0},{"id":4,"x":0.3333333333333333,"y":0.5,"z":0,"w":0.3333333333333333,"h":0.5,"crop":0},{"id":5,"x":0.6666666666666666,"y":0.5,"z":0,"w":0.3333333333333333,"h":0.5,"crop":0}]}', 1, 1, 0);

-- The pool of free slots that custom layouts are added to. Free slots have no kind, so
-- no listing shows them; a slot taken into use joins "Manual".
INSERT INTO mixer_config (id, type, group_id, name, content, rank, enabled, custom)
WITH RECURSIVE slot (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM slot WHERE i < 32)
SELECT 15 + i, 0, NULL, 'Manual ' || i, '', -1, 0, 0 FROM slot;

-- Layouts of the local display.
INSERT INTO mixer_config (id, type, group_id, name, content, rank, enabled, custom) VALUES
  (48, 0, 13, 'Display HDMI1', '{"layout":[{"id":1,"x":0,"y":0,"z":0,"w":1,"h":1,"crop":0}]}', 1, 1, 0),
  (49, 0, 13, 'Display HDMI1 to HDMI4', '{"layout":[{"id":1,"x":0,"y":0,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":2,"x":0.5,"y":0,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":3,"x":0,"y":0.5,"z":0,"w":0.5,"h":0.5,"crop":0},{"id":4,"x":0.5,"y":0.5,"z":0,"w":0.5,"h":0.5,"crop":0}]}', 2, 1, 0),
  (50, 0, 13, 'Display HDMI1 with HDMI2', '{"layout":[{"id":1,"x":0,"y":0,"z":0,"w":1,"h":1,"crop":0},{"id":2,"x":0.7,"y":0.7,"z":1,"w":0.25,"h":0.25,"crop":0}]}', 3, 1, 0);

-- Audio mixes: the channels each audio mixer mixes (10 Audio-Mix, 11 Audio-Usb, 1 the
-- first capture input's embedded audio).
INSERT INTO mixer_config (id, type, group_id, name, content, rank, enabled, custom) VALUES
  (51, 1, 14, 'Line out mix', '{"sources":[{"id":10},{"id":1}]}', 1, 1, 0),
  (52, 1, 14, 'USB mix', '{"sources":[{"id":11}]}', 2, 1, 0),
  (53, 1, 14, 'Audio mix 3', '', -1, 0, 0),
  (54, 1, 14, 'Audio mix 4', '', -1, 0, 0);

-- Backgrounds: three shipped pictures and free slots.
INSERT INTO mixer_asset (id, type, name, path, enabled, rank) VALUES
  (1, 0, 'black.png', '/var/lib/zolo/media/assets/background', 1, 1),
  (2, 0, 'grey.png', '/var/lib/zolo/media/assets/background', 1, 2),
  (3, 0, 'blue.png', '/var/lib/zolo/media/assets/background', 1, 3);
INSERT INTO mixer_asset (id, type)
WITH RECURSIVE slot (i) AS (SELECT 4 UNION ALL SELECT i + 1 FROM slot WHERE i < 16)
SELECT i, 0 FROM slot;

-- Foregrounds: the fixed intermission slots (the first one shipped and in use), then
-- free slots.
INSERT INTO mixer_asset (id, type, name, path, enabled, rank) VALUES
  (17, 1, 'intermission_1.png', '/var/lib/zolo/media/assets/foreground', 1, 1),
  (18, 1, 'intermission_2.png', '/var/lib/zolo/media/assets/foreground', 0, -1),
  (19, 1, 'intermission_3.png', '/var/lib/zolo/media/assets/foreground', 0, -1);
INSERT INTO mixer_asset (id, type)
WITH RECURSIVE slot (i) AS (SELECT 20 UNION ALL SELECT i + 1 FROM slot WHERE i < 32)
SELECT i, 1 FROM slot;

-- Overlays and logos: the shipped logo in the top right corner, then free slots.
INSERT INTO mixer_asset (id, type, name, path, origin, origins, location, enabled, rank) VALUES
  (33, 2, 'logo.png', '/var/lib/zolo/media/assets/overlay', 'logo.svg', '["logo.svg"]',
   '[{"x":0.85,"y":0.05}]', 1, 1);
INSERT INTO mixer_asset (id, type)
WITH RECURSIVE slot (i) AS (SELECT 34 UNION ALL SELECT i + 1 FROM slot WHERE i < 48)
SELECT i, 2 FROM slot;

-- System overlays drawn by the engine itself.
INSERT INTO mixer_asset (id, type, name, path, location, content, enabled, rank) VALUES
  (49, 3, 'recording_indicator.png', '/usr/share/media/overlay', '[{"x":0.02,"y":0.02}]',
   '{"kind":"recording_indicator"}', 1, 1),
  (50, 3, 'clock.png', '/usr/share/media/overlay', '[{"x":0.02,"y":0.92}]',
   '{"kind":"clock","format":"%H:%M:%S"}', 1, 2);
INSERT INTO mixer_asset (id, type)
WITH RECURSIVE slot (i) AS (SELECT 51 UNION ALL SELECT i + 1 FROM slot WHERE i < 56)
SELECT i, 3 FROM slot;

-- Themes: the default one and free slots.
INSERT INTO theme (id, name, layout_id, background_id, overlay_id, enabled, rank) VALUES
  (1, 'Default', 1, 1, 33, 1, 1);
INSERT INTO theme (id)
WITH RECURSIVE slot (i) AS (SELECT 2 UNION ALL SELECT i + 1 FROM slot WHERE i < 16)
SELECT i FROM slot;

-- The mixers. The three video mixers record and stream; the display mixer feeds the
-- local display; the first audio mixer feeds the line output, the second is spare.
INSERT INTO mixer (id, type, name, config_id, background_id, foreground_id, overlay_id,
                   system_overlay_id, theme_id) VALUES
  (1, 0, 'zolo://video/mixer/0', 1, 1, NULL, NULL, NULL, 1),
  (2, 0, 'zolo://video/mixer/1', 2, 1, NULL, NULL, NULL, NULL),
  (3, 0, 'zolo://video/mixer/2', 3, 1, NULL, NULL, NULL, NULL),
  (4, 0, 'zolo://video/display_mixer/0', 49, NULL, NULL, NULL, NULL, NULL),
  (5, 1, 'zolo://audio/mixer/0', 51, NULL, NULL, NULL, NULL, NULL),
  (6, 1, 'zolo://audio/mixer/1', 52, NULL, NULL, NULL, NULL, NULL);
INSERT INTO mixer_output (mixer_id, position, stream) VALUES
  (4, 0, 'display1'),
  (5, 0, 'audio-out1');


-- ===== end of mixers, layouts, assets, themes =====

-- ===== audio ports =====

-- Audio ports are streams of type "audio", one per port and named after it: inputs have no
-- destination, outputs have one. File playback reaches the audio inputs as a "playback"
-- stream. Parameters: "volume" (0-100), "mute" (0, 1), "audio_type", "gain" (dB), "noise_reduction"
-- (level), "xlr_channel" and "xlr_power" (XLR inputs), "monitor_mode",
-- "monitor_duration_threshold" (seconds) and "monitor_level_threshold" (dB below full
-- scale) (outputs).
-- The channels of the outputs are named "Audio-Out..." so that the output's audio mixer
-- membership can be told; they are plumbing, hidden from channel lists.
INSERT INTO channel (name, video_source_id, audio_source_id, ordinal, attribute, visible) VALUES
  ('Audio-Out-Line1', NULL, 18, '1', 1, 0),
  ('Audio-Out-Usb1', NULL, 17, '1', 1, 0),
  ('Audio-Out-Hdmi1', NULL, NULL, '1', 1, 0);
UPDATE stream SET channel_id = (SELECT id FROM channel WHERE name = 'Audio-Out-Line1')
  WHERE name = 'audio-out1';

INSERT INTO stream (name, type, channel_id, destination, enable, parameters) VALUES
  ('xlr-in1', 'audio', 10, '', 1, '{"volume": 70, "mute": 0, "audio_type": 2, "gain": 24, "noise_reduction": 1, "xlr_channel": 0, "xlr_power": 1}'),
  ('xlr-in2', 'audio', 10, '', 1, '{"volume": 70, "mute": 1, "audio_type": 2, "gain": -6, "noise_reduction": 0, "xlr_channel": 1, "xlr_power": 0}'),
  ('usb-audio-in1', 'audio', 10, '', 1, '{"volume": 100, "mute": 0, "audio_type": 3}'),
  ('audio-out2', 'audio', (SELECT id FROM channel WHERE name = 'Audio-Out-Usb1'), 'audio://usb-out/0', 1, '{"volume": 90, "mute": 0, "audio_type": 0, "monitor_mode": 0}'),
  ('audio-out3', 'audio', (SELECT id FROM channel WHERE name = 'Audio-Out-Hdmi1'), 'audio://hdmi-out/0', 1, '{"volume": 100, "mute": 0, "audio_type": 1}'),
  ('playback1', 'playback', 9, '', 1, '{"volume": 100, "mute": 0, "audio_type": 4}');

-- The first audio mixer feeds the line output (above); the second feeds the USB output.
INSERT INTO mixer_output (mixer_id, position, stream) VALUES (6, 0, 'audio-out2');

-- ===== end of audio ports =====

-- Recording mode: "movie1" records the program channel "Movie" (bit 0 of the mode); the
-- per-input recordings "movie2" (Video-Capture2) and "backup1" (Video-Capture1) are the
-- channel file streams (bit 1).
UPDATE stream SET channel_id = (SELECT id FROM channel WHERE name = 'Movie') WHERE name = 'movie1';
