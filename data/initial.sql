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

-- Outputs of the engine. type: "file", "network", "preview", "display", "audio", ...
-- parameters and authentication are JSON objects. For file streams the parameters hold
-- "bitrate" (kilobits per second, video and audio together), "sub_storage" (1: written to
-- the sub storage) and "max_duration" (seconds).
CREATE TABLE stream (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL,
  type TEXT NOT NULL,
  channel_id INTEGER,
  codec_parameter_preset_id INTEGER,
  container TEXT NOT NULL DEFAULT '',
  destination TEXT NOT NULL DEFAULT '',
  aux_text TEXT NOT NULL DEFAULT '',
  enable INTEGER NOT NULL DEFAULT 1,
  enable_option1 INTEGER NOT NULL DEFAULT 0,
  enable_option2 INTEGER NOT NULL DEFAULT 0,
  enable_option3 INTEGER NOT NULL DEFAULT 0,
  suspend INTEGER NOT NULL DEFAULT 0,
  parameters TEXT NOT NULL DEFAULT '{}',
  authentication TEXT NOT NULL DEFAULT '{}'
);
CREATE INDEX stream_type_name ON stream (type, name);

INSERT INTO stream (name, type, container, destination, enable, parameters) VALUES
  ('movie1', 'file', 'mp4', 'file:///media/SD/recordings', 1,
   '{"bitrate": 12288, "sub_storage": 0, "max_duration": 28800}'),
  ('movie2', 'file', 'mp4', 'file:///media/SD/recordings', 0,
   '{"bitrate": 6144, "sub_storage": 0, "max_duration": 28800}'),
  ('backup1', 'file', 'mp4', 'file:///media/USB0/recordings', 0,
   '{"bitrate": 4096, "sub_storage": 1, "max_duration": 28800}');

-- ===== end of settings, sources, channels, streams, metadata, codecs =====

-- ===== mixers, layouts, assets, themes =====

-- ===== end of mixers, layouts, assets, themes =====
