-- Media configuration database: schema and the default configuration of the appliance.
-- Run once by MediaModel::Initialize when the database file does not exist yet.

-- ===== settings, sources, channels, streams, metadata, codecs =====

-- ===== end of settings, sources, channels, streams, metadata, codecs =====

-- ===== mixers, layouts, assets, themes =====

-- ===== end of mixers, layouts, assets, themes =====
