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
  (19, 'Line-In1', 1, 0, 'alsa://hw:0,0', '', '{"audio_delay": 0}', '{}', 1, 1, 1);

INSERT INTO user_source
  (id, name, type, category, url, parameters, authentication, fixed, available, visible)
VALUES
  (1, 'Lobby Camera', 0, 1, 'rtsp://192.168.1.64:554/stream1', '{"rotate": 0, "audio_delay": 0, "preview_dest": ""}', '{}', 1, 1, 1),
  (2, 'Remote Studio', 0, 3, 'srt://0.0.0.0:9001?mode=listener', '{"latency": 200, "source_port": 9001, "audio_delay": 0}', '{"encryption": 1, "key_length": 16, "passphrase": "change-me-please"}', 1, 1, 1),
  (3, 'Stage NDI', 0, 1, 'ndi://STAGE-PC/output', '{"rotate": 0}', '{}', 1, 1, 1),
  (4, 'Spare SRT caller', 0, 1, 'srt://203.0.113.10:9002?mode=caller', '{"latency": 120}', '{"encryption": 0}', 1, 1, 0);

-- Channels bind at most one video source, one audio source, one video user source and one
-- audio user source; removing a source clears the link. Channels are named after the input
-- that feeds them and their number (Video-Capture2, Video-Usb1, RTSP1, SRT-LISTENER1).
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
  (5, 'Video-Capture5', 5, 16, NULL, NULL, '5', 0), (6, 'Video-Usb1', 6, 17, NULL, NULL, '1', 0),
  (7, 'RTSP1', 7, 7, 1, NULL, '1', 0), (8, 'SRT-LISTENER1', 8, 8, 2, 2, '1', 0),
  (9, 'Movie', 9, 9, NULL, NULL, '', 0),
  (10, 'Audio-Mix', NULL, 18, NULL, NULL, '1', 1), (11, 'Audio-Usb', NULL, 17, NULL, NULL, '1', 1);

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
  (6, '{"video_sources": [6], "audio_sources": [17]}', '{"video_sources": []}'),
  (7, '{"video_sources": [7, 10, 11], "audio_sources": [7]}', '{"video_sources": [1, 3, 4], "audio_sources": [1]}'),
  (8, '{"video_sources": [8, 11], "audio_sources": [8]}', '{"video_sources": [2], "audio_sources": [2]}'),
  (9, '{"video_sources": [9], "audio_sources": [9]}', '{"video_sources": []}'),
  (10, '{"audio_sources": [18]}', '{}'),
  (11, '{"audio_sources": [17]}', '{}');

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
  (1, '1080p60 High', 1, 4, '{"width":1920,"height":1080,"framerate":60,"bitrate":12000,"gop":60,"profile":"high"}', '{"bitrate":256,"samplerate":48000,"channels":2}', 1),
  (2, '1080p30 HEVC', 2, 4, '{"width":1920,"height":1080,"framerate":30,"bitrate":6000,"gop":30}', '{"bitrate":128,"samplerate":48000,"channels":2}', 1),
  (3, '720p30 Stream', 1, 4, '{"width":1280,"height":720,"framerate":30,"bitrate":4000,"gop":60,"profile":"main"}', '{"bitrate":128,"samplerate":48000,"channels":2}', 1),
  (4, 'NDI Preview Profile', 1, 4, '{"width":640,"height":360,"framerate":30,"bitrate":1000,"gop":30}', '{"bitrate":96,"samplerate":48000,"channels":2}', 1),
  (5, 'Raw Capture', 3, 5, '{"width":1920,"height":1080,"framerate":60}', '{"samplerate":48000,"channels":2}', 1),
  (6, 'My Event 1080p', 1, 4, '{"width":1920,"height":1080,"framerate":50,"bitrate":10000,"gop":50}', '{"bitrate":192,"samplerate":48000,"channels":2}', 0);

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
  ('ndi1', 'network', 1, 2, '', 'ndi://0.0.0.0', 0, '{"ndi_group_name": "public", "ndi_discovery_server": "", "ndi_stream_bandwidth": 1}', '{}'),
  ('webrtc1', 'network', 1, 3, '', 'webrtc://0.0.0.0/live', 0, '{}', '{}'),
  ('udp1', 'network', 1, 3, 'ts', 'udp://239.1.1.1:5000', 0, '{"multicast": 1, "ttl": 16, "netmask": "255.255.255.0", "netprefix": ""}', '{}'),
  ('preview', 'preview', 1, 4, '', 'rtsp://0.0.0.0:8554/preview', 1, '{}', '{}'),
  ('preview1', 'preview', 2, 4, '', 'rtsp://0.0.0.0:8554/preview1', 1, '{}', '{}'),
  ('preview2', 'preview', 3, 4, '', 'rtsp://0.0.0.0:8554/preview2', 1, '{}', '{}'),
  ('preview-ndi-sub', 'preview', 1, 4, '', 'ndi://0.0.0.0', 0, '{}', '{}'),
  ('display1', 'display', 1, 5, '', 'display://hdmi/0', 1, '{"brightness": 50, "contrast": 50, "saturation": 50, "hue": 0}', '{}'),
  ('audio-in1', 'audio', 10, NULL, '', '', 1, '{"volume": 80, "gain": 0, "type": 0}', '{}'),
  ('audio-out1', 'audio', 10, NULL, '', 'audio://line-out/0', 1, '{"volume": 80, "mute": 0}', '{}'),
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

-- ===== end of settings, sources, channels, streams, metadata, codecs =====

-- ===== mixers, layouts, assets, themes =====

-- ===== end of mixers, layouts, assets, themes =====
