#include "outbound.h"

#include <algorithm>

namespace zolo::gateway {
namespace {

constexpr size_t kMaxVectors = 256;
// Frames queued before a write is tried even while more are coming.
constexpr size_t kWriteEvery = 128;
// What the WebSocket layer may have waiting beyond the frame limits (pongs, the close frame)
// before the client counts as jammed and its writes fail.
constexpr size_t kRawAllowance = 64 * 1024;
// What a closing connection reads and drops of what the client had already sent.
constexpr size_t kDrainLimit = 1 << 20;

}  // namespace

Frame TextFrame(const std::string& payload) {
  auto frame = std::make_shared<std::string>();
  size_t size = payload.size();
  frame->reserve(size + 10);
  frame->push_back(static_cast<char>(0x81));  // FIN, text
  if (size < 126) {
    frame->push_back(static_cast<char>(size));
  } else if (size <= 0xffff) {
    frame->push_back(126);
    for (int shift : {8, 0}) frame->push_back(static_cast<char>((size >> shift) & 0xff));
  } else {
    frame->push_back(127);
    for (int shift = 56; shift >= 0; shift -= 8)
      frame->push_back(static_cast<char>((static_cast<uint64_t>(size) >> shift) & 0xff));
  }
  frame->append(payload);
  return frame;
}

Outbound::Outbound(GIOStream* socket, GMainContext* context, Limits limits)
    : socket_(G_IO_STREAM(g_object_ref(socket))),
      out_(G_POLLABLE_OUTPUT_STREAM(g_io_stream_get_output_stream(socket))),
      context_(g_main_context_ref(context)),
      limits_(limits) {}

Outbound::~Outbound() {
  if (watch_ != nullptr) {
    g_source_destroy(watch_);
    g_source_unref(watch_);
  }
  g_main_context_unref(context_);
  g_object_unref(socket_);
}

Outbound::Added Outbound::Add(Frame frame, bool high_volume) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (stopped_ || closed_ || failed_) return Added::kStopped;
  Added result = Added::kQueued;
  auto full = [&] {
    return queue_.size() >= limits_.messages || queued_bytes_ + frame->size() > limits_.bytes;
  };
  // A long burst goes out in pieces, and the limits count only what the socket would not take.
  if (queue_.size() >= kWriteEvery || full()) FlushLocked();
  if (full()) {
    if (full_since_ == 0) full_since_ = g_get_monotonic_time();
    if (high_volume) return Added::kDropped;
    // The front chunk may be half written; it has to go out whole.
    auto begin = queue_.begin() + (head_sent_ > 0 ? 1 : 0);
    auto victim = std::find_if(begin, queue_.end(), [](const Chunk& c) { return c.high_volume; });
    if (victim == queue_.end()) return Added::kFull;
    queued_bytes_ -= victim->data->size();
    queue_.erase(victim);
    result = Added::kQueuedDroppingOlder;
  }
  queued_bytes_ += frame->size();
  queue_.push_back(Chunk{std::move(frame), high_volume});
  return result;
}

bool Outbound::AddRaw(const void* data, size_t size) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (failed_) return false;
  if (closed_) return true;
  if (queued_bytes_ + size > limits_.bytes + kRawAllowance) {
    // The client reads nothing, not even the layer's own frames: give up on it.
    failed_ = true;
    return false;
  }
  queued_bytes_ += size;
  queue_.push_back(
      Chunk{std::make_shared<std::string>(static_cast<const char*>(data), size), false});
  FlushLocked();
  return !failed_;
}

void Outbound::Flush() {
  std::lock_guard<std::mutex> lock(mutex_);
  FlushLocked();
}

void Outbound::FlushLocked() {
  while (!queue_.empty() && !closed_ && !failed_) {
    GOutputVector vectors[kMaxVectors];
    size_t count = 0;
    for (auto it = queue_.begin(); it != queue_.end() && count < kMaxVectors; ++it, ++count) {
      size_t skip = count == 0 ? head_sent_ : 0;
      vectors[count] = {it->data->data() + skip, it->data->size() - skip};
    }
    gsize written = 0;
    GError* error = nullptr;
    GPollableReturn result = g_pollable_output_stream_writev_nonblocking(out_, vectors, count,
                                                                         &written, nullptr, &error);
    if (result == G_POLLABLE_RETURN_WOULD_BLOCK) return WatchWritable();
    if (result == G_POLLABLE_RETURN_FAILED) {
      // The connection is gone; its reading side notices and closes the session.
      g_clear_error(&error);
      failed_ = true;
      queue_.clear();
      queued_bytes_ = head_sent_ = 0;
      return;
    }
    if (!ConsumeWritten(written)) return WatchWritable();
  }
}

bool Outbound::ConsumeWritten(size_t written) {
  if (written == 0) return false;
  while (written > 0 && !queue_.empty()) {
    size_t left = queue_.front().data->size() - head_sent_;
    if (written < left) {
      head_sent_ += written;
      return true;
    }
    written -= left;
    queued_bytes_ -= queue_.front().data->size();
    queue_.pop_front();
    head_sent_ = 0;
  }
  if (queue_.size() <= limits_.messages / 2 && queued_bytes_ <= limits_.bytes / 2) full_since_ = 0;
  return true;
}

gint64 Outbound::full_since() {
  std::lock_guard<std::mutex> lock(mutex_);
  return full_since_;
}

void Outbound::WatchWritable() {
  if (watch_ != nullptr) return;
  watch_ = g_pollable_output_stream_create_source(out_, nullptr);
  // A pollable stream's source calls back with the stream first.
  GPollableSourceFunc on_writable = [](GObject*, gpointer data) -> gboolean {
    std::shared_ptr<Outbound> self = static_cast<std::weak_ptr<Outbound>*>(data)->lock();
    if (self == nullptr) return G_SOURCE_REMOVE;
    std::lock_guard<std::mutex> lock(self->mutex_);
    if (self->watch_ != nullptr) {
      g_source_unref(self->watch_);
      self->watch_ = nullptr;
    }
    self->FlushLocked();
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(watch_, G_SOURCE_FUNC(on_writable),
                        new std::weak_ptr<Outbound>(weak_from_this()),
                        [](gpointer data) { delete static_cast<std::weak_ptr<Outbound>*>(data); });
  g_source_attach(watch_, context_);
}

void Outbound::Stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  stopped_ = true;
  size_t keep = head_sent_ > 0 ? 1 : 0;
  while (queue_.size() > keep) {
    queued_bytes_ -= queue_.back().data->size();
    queue_.pop_back();
  }
}

void Outbound::Close() {
  std::lock_guard<std::mutex> lock(mutex_);
  FlushLocked();
  closed_ = true;
  queue_.clear();
  queued_bytes_ = head_sent_ = 0;
  if (watch_ != nullptr) {
    g_source_destroy(watch_);
    g_source_unref(watch_);
    watch_ = nullptr;
  }
}

// The stream the WebSocket layer is given: GObject types for its output and for the pair.
namespace {

struct OutboundOutput {
  GOutputStream parent_instance;
  std::shared_ptr<Outbound>* outbound;
};
struct OutboundOutputClass {
  GOutputStreamClass parent_class;
};

struct OutboundStream {
  GIOStream parent_instance;
  GIOStream* base;
  GOutputStream* output;
  std::shared_ptr<Outbound>* outbound;
};
struct OutboundStreamClass {
  GIOStreamClass parent_class;
};

void outbound_output_pollable_init(GPollableOutputStreamInterface* iface);

G_DEFINE_TYPE_WITH_CODE(OutboundOutput, outbound_output, G_TYPE_OUTPUT_STREAM,
                        G_IMPLEMENT_INTERFACE(G_TYPE_POLLABLE_OUTPUT_STREAM,
                                              outbound_output_pollable_init))
G_DEFINE_TYPE(OutboundStream, outbound_stream, G_TYPE_IO_STREAM)

Outbound& OutboundOf(gpointer stream) {
  return **reinterpret_cast<OutboundOutput*>(stream)->outbound;
}

gssize OutputWrite(GOutputStream* stream, const void* data, gsize size, GCancellable*,
                   GError** error) {
  if (OutboundOf(stream).AddRaw(data, size)) return static_cast<gssize>(size);
  g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_BROKEN_PIPE, "the client reads nothing");
  return -1;
}

gssize OutputWriteNonblocking(GPollableOutputStream* stream, const void* data, gsize size,
                              GError** error) {
  return OutputWrite(G_OUTPUT_STREAM(stream), data, size, nullptr, error);
}

void outbound_output_pollable_init(GPollableOutputStreamInterface* iface) {
  iface->can_poll = [](GPollableOutputStream*) -> gboolean { return TRUE; };
  // Always writable: what the socket does not take waits in the Outbound.
  iface->is_writable = [](GPollableOutputStream*) -> gboolean { return TRUE; };
  iface->create_source = [](GPollableOutputStream* stream, GCancellable*) {
    GSource* ready = g_pollable_source_new(G_OBJECT(stream));
    g_source_set_ready_time(ready, 0);
    return ready;
  };
  iface->write_nonblocking = OutputWriteNonblocking;
}

void outbound_output_init(OutboundOutput*) {}

void outbound_output_class_init(OutboundOutputClass* klass) {
  G_OUTPUT_STREAM_CLASS(klass)->write_fn = OutputWrite;
  G_OBJECT_CLASS(klass)->finalize = [](GObject* object) {
    delete reinterpret_cast<OutboundOutput*>(object)->outbound;
    G_OBJECT_CLASS(outbound_output_parent_class)->finalize(object);
  };
}

OutboundStream* StreamOf(gpointer stream) {
  return reinterpret_cast<OutboundStream*>(stream);
}

// Reads and drops what the client already sent: a socket closed with unread bytes resets
// the connection, and the client may then lose the close frame just written.
void DrainInput(GIOStream* base) {
  GInputStream* in = g_io_stream_get_input_stream(base);
  if (!G_IS_POLLABLE_INPUT_STREAM(in)) return;
  char buffer[16384];
  for (size_t total = 0; total < kDrainLimit;) {
    gssize got = g_pollable_input_stream_read_nonblocking(G_POLLABLE_INPUT_STREAM(in), buffer,
                                                          sizeof buffer, nullptr, nullptr);
    if (got <= 0) break;
    total += static_cast<size_t>(got);
  }
}

void StreamCloseAsync(GIOStream* stream, int priority, GCancellable* cancellable,
                      GAsyncReadyCallback callback, gpointer data) {
  GTask* task = g_task_new(stream, cancellable, callback, data);
  (*StreamOf(stream)->outbound)->Close();
  DrainInput(StreamOf(stream)->base);
  g_io_stream_close_async(
      StreamOf(stream)->base, priority, cancellable,
      [](GObject* base, GAsyncResult* result, gpointer pending) {
        GTask* closing = G_TASK(pending);
        GError* error = nullptr;
        if (g_io_stream_close_finish(G_IO_STREAM(base), result, &error))
          g_task_return_boolean(closing, TRUE);
        else
          g_task_return_error(closing, error);
        g_object_unref(closing);
      },
      task);
}

void outbound_stream_init(OutboundStream*) {}

void outbound_stream_class_init(OutboundStreamClass* klass) {
  GIOStreamClass* io = G_IO_STREAM_CLASS(klass);
  io->get_input_stream = [](GIOStream* stream) {
    return g_io_stream_get_input_stream(StreamOf(stream)->base);
  };
  io->get_output_stream = [](GIOStream* stream) { return StreamOf(stream)->output; };
  io->close_fn = [](GIOStream* stream, GCancellable* cancellable, GError** error) -> gboolean {
    (*StreamOf(stream)->outbound)->Close();
    DrainInput(StreamOf(stream)->base);
    return g_io_stream_close(StreamOf(stream)->base, cancellable, error);
  };
  io->close_async = StreamCloseAsync;
  io->close_finish = [](GIOStream*, GAsyncResult* result, GError** error) -> gboolean {
    return g_task_propagate_boolean(G_TASK(result), error);
  };
  G_OBJECT_CLASS(klass)->finalize = [](GObject* object) {
    OutboundStream* self = StreamOf(object);
    g_object_unref(self->output);
    g_object_unref(self->base);
    delete self->outbound;
    G_OBJECT_CLASS(outbound_stream_parent_class)->finalize(object);
  };
}

}  // namespace

GIOStream* OutboundStreamNew(GIOStream* base, std::shared_ptr<Outbound> outbound) {
  auto* output =
      reinterpret_cast<OutboundOutput*>(g_object_new(outbound_output_get_type(), nullptr));
  output->outbound = new std::shared_ptr<Outbound>(outbound);
  auto* stream =
      reinterpret_cast<OutboundStream*>(g_object_new(outbound_stream_get_type(), nullptr));
  stream->base = G_IO_STREAM(g_object_ref(base));
  stream->output = G_OUTPUT_STREAM(output);
  stream->outbound = new std::shared_ptr<Outbound>(std::move(outbound));
  return G_IO_STREAM(stream);
}

}  // namespace zolo::gateway
