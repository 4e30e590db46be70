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

-- Channels pair a video source with an audio source. Source ids refer to the source tables.
CREATE TABLE channel (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  video_source_id INTEGER NOT NULL DEFAULT 0,
  audio_source_id INTEGER NOT NULL DEFAULT 0
);

INSERT INTO channel (id, name, video_source_id, audio_source_id) VALUES
  (1, 'Video-Capture1', 1, 1), (2, 'Video-Capture2', 2, 2), (3, 'Video-Capture3', 3, 3),
  (4, 'Video-Capture4', 4, 4), (5, 'Video-Capture5', 5, 5), (6, 'Video-Usb1', 6, 6),
  (7, 'RTSP1', 7, 7), (8, 'SRT-LISTENER1', 8, 8), (9, 'Movie', 9, 9),
  (10, 'Audio-Mix', 0, 10), (11, 'Audio-Usb', 0, 11);

-- Codecs: type 0 video, 1 audio.
CREATE TABLE codec (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  type INTEGER NOT NULL
);

INSERT INTO codec (id, name, type) VALUES
  (1, 'H.264', 0), (2, 'H.265', 0), (3, 'RAW', 0), (4, 'AAC', 1), (5, 'PCM', 1), (6, 'OPUS', 1);

-- Codec parameter presets; the codec parameters are JSON objects. Built-in presets cannot
-- be changed or removed.
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
