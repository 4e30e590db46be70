// One WebSocket client of the gateway, and one library call on its way through the workers.
// Private to the gateway's source files.
#pragma once

#include "gateway.h"
#include "outbound.h"

namespace zolo::gateway {

struct Gateway::Session {
  Gateway* gateway = nullptr;
  uint64_t id = 0;
  SoupWebsocketConnection* connection = nullptr;
  std::shared_ptr<Outbound> outbound;  // shared with the connection's stream and running jobs
  std::string address;
  std::string challenge;
  bool identified = false;
  bool closing = false;
  bool checking_answer = false;  // an Identify is waiting out its slow-down
  JsonHolder pending_identify;
  Subscriptions subscriptions;
  Coalescer coalescer;
  // Set while the client watches live pictures: what it shows to fetch them over HTTP.
  std::string live_token;
  // Requests the workers have not answered yet; they count down themselves.
  std::shared_ptr<std::atomic<int>> in_flight = std::make_shared<std::atomic<int>>(0);
  GSource* identify_timer = nullptr;
  GSource* answer_timer = nullptr;
  GSource* coalesce_timer = nullptr;
};

// A one-shot timer on `context` running `fire(data)`. The timer's owner keeps the source;
// `fire` and cancelling both go through `*slot`.
GSource* StartTimer(GMainContext* context, guint ms, void (*fire)(gpointer), gpointer data);
// Stops the timer in `*slot` (if any) and clears the slot.
void CancelTimer(GSource** slot);
// Runs `function(data)` once on the thread that iterates `context`, from any thread. Never
// inline, unlike g_main_context_invoke: a caller holding a lock the function takes (the
// signal thread) or a context nobody owns for a moment (before the loop runs, during Stop)
// must not run loop code on the calling thread.
void PostToLoop(GMainContext* context, GSourceFunc function, gpointer data);

struct Gateway::Job {
  Gateway* gateway;
  uint64_t session;
  bool batch;
  JsonHolder message;  // owns `d`
  const cJSON* d;
  gint64 arrived;
  std::shared_ptr<Outbound> outbound;                 // where the worker sends the response
  std::shared_ptr<std::atomic<int>> in_flight;        // the session's count
  std::vector<std::pair<std::string, int>> outcomes;  // metric name and code of each request
};

}  // namespace zolo::gateway
