// One WebSocket client of the gateway, and one library call on its way through the workers.
// Private to the gateway's source files.
#pragma once

#include "gateway.h"

namespace zolo::gateway {

struct Gateway::Session {
  Gateway* gateway = nullptr;
  uint64_t id = 0;
  SoupWebsocketConnection* connection = nullptr;
  GSocket* socket = nullptr;
  std::string address;
  std::string challenge;
  bool identified = false;
  bool closing = false;
  bool checking_answer = false;  // an Identify is waiting out its slow-down
  JsonHolder pending_identify;
  Subscriptions subscriptions;
  Coalescer coalescer;
  int in_flight = 0;
  std::deque<Outgoing> queue;
  size_t queue_bytes = 0;
  size_t send_budget = 0;  // bytes the socket may take before it is asked again
  GSource* write_watch = nullptr;
  GSource* identify_timer = nullptr;
  GSource* answer_timer = nullptr;
  GSource* coalesce_timer = nullptr;
};

// A one-shot timer on `context` running `fire(data)`. The timer's owner keeps the source;
// `fire` and cancelling both go through `*slot`.
GSource* StartTimer(GMainContext* context, guint ms, void (*fire)(gpointer), gpointer data);
// Stops the timer in `*slot` (if any) and clears the slot.
void CancelTimer(GSource** slot);

struct Gateway::Job {
  Gateway* gateway;
  uint64_t session;
  bool batch;
  JsonHolder message;  // owns `d`
  const cJSON* d;
  gint64 arrived;
  std::string response;                               // the whole message to send
  std::vector<std::pair<std::string, int>> outcomes;  // metric name and code of each request
};

}  // namespace zolo::gateway
