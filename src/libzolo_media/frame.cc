// Library lifecycle and media-service calls.
