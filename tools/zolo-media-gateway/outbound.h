// Everything one WebSocket client is sent, in order: the gateway's own frames (framed here
// once and shared by every client that gets them) and what the WebSocket layer writes itself
// (pongs, the close frame). Bytes may be added and flushed from any thread, so a finished
// library call answers from its worker without waiting for the main loop, and a burst of
// events leaves in one write per client instead of one per event. One thread writes at a
// time (the lock) while the loop reads, which GIO streams allow once a TLS handshake is done,
// and it is done before the WebSocket upgrade is read.
#pragma once

#include <gio/gio.h>

#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace zolo::gateway {

// An unmasked server text frame, shareable between clients.
using Frame = std::shared_ptr<const std::string>;
Frame TextFrame(const std::string& payload);

class Outbound : public std::enable_shared_from_this<Outbound> {
 public:
  struct Limits {
    size_t messages;
    size_t bytes;
  };
  enum class Added { kQueued, kQueuedDroppingOlder, kDropped, kFull, kStopped };

  // Writes to `socket`'s output (a pollable stream, kept referenced); waits for writability
  // on `context`.
  Outbound(GIOStream* socket, GMainContext* context, Limits limits);
  ~Outbound();
  Outbound(const Outbound&) = delete;
  Outbound& operator=(const Outbound&) = delete;

  // Queues `frame` without writing it. At the limits a high-volume frame is dropped; any other
  // makes room by dropping the oldest high-volume frame not begun, or is refused (kFull).
  Added Add(Frame frame, bool high_volume);
  // Queues bytes of the WebSocket layer. False when the client reads nothing, not even
  // those (its writes fail from then on).
  bool AddRaw(const void* data, size_t size);
  // Writes what the socket takes now; the rest goes when it becomes writable.
  void Flush();
  // Drops every frame not begun and refuses more; the layer's own bytes (the close frame)
  // still go.
  void Stop();
  // Flushes what the socket takes and stops writing for good (the stream is closing).
  void Close();
  // Since when (monotonic µs) the queue has been full, dropping or refusing frames, without
  // draining to half its limits since; 0 when it is not.
  gint64 full_since();

 private:
  struct Chunk {
    Frame data;
    bool high_volume;
  };
  void FlushLocked();
  void WatchWritable();
  bool ConsumeWritten(size_t written);

  GIOStream* socket_;
  GPollableOutputStream* out_;
  GMainContext* context_;
  Limits limits_;
  std::mutex mutex_;
  std::deque<Chunk> queue_;
  size_t head_sent_ = 0;  // bytes of the front chunk already written
  size_t queued_bytes_ = 0;
  size_t raw_bytes_ = 0;
  gint64 full_since_ = 0;
  GSource* watch_ = nullptr;
  bool stopped_ = false;
  bool closed_ = false;
  bool failed_ = false;
};

// A stream for the WebSocket layer over `base`: reads go to `base`, writes into `outbound`,
// and closing flushes it before `base` closes. Returns a new reference.
GIOStream* OutboundStreamNew(GIOStream* base, std::shared_ptr<Outbound> outbound);

}  // namespace zolo::gateway
