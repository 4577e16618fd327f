// The wrapped entry points. What the SDK gets as a cookie says of itself which request it answers, so that an answer that
// comes late or twice is known for what it is, and nothing is kept for one that never comes.
#include "tests/campaign/SdkTap.h"

#include "kiln/Assert.h"
#include "sdk/bf_port.h"
#include "sdk/pipe_mgr.h"
#include "zl/ZelCountersIntf.h"

#include <bit>
#include <map>

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker has these names.
extern "C" {
bf_status_t __real_bf_port_mac_stats_hw_async_get(bf_dev_id_t, bf_dev_port_t, bf_port_mac_stats_cb, void*);
pipe_status_t __real_pipe_mgr_stat_database_sync(pipe_sess_hdl_t, dev_target_t, pipe_tbl_hdl_t,
                                                 pipe_mgr_stat_tbl_sync_cback_fn, void*);
U32 __real__ZN15ZelCountersIntf19counterHwSyncDirectEjjtjPFviPvES0_(U32, U32, U16, U32,
                                                                    ZelCountersIntf::SyncCallback, void*);
U32 __real__ZN15ZelCountersIntf21counterHwSyncIndirectEjjtjPFviPvES0_(U32, U32, U16, U32,
                                                                      ZelCountersIntf::SyncCallback, void*);
}

namespace Campaign {

namespace {

SdkListener* listener = nullptr;

// Of the library's callbacks and cookies. Pollers of queues keep theirs over the lives of their chip.
bf_port_mac_stats_cb macCallback = nullptr;
ZelCountersIntf::SyncCallback tableCallback = nullptr;
ZelCountersIntf::SyncCallback queueCallback = nullptr;
std::map<U64, void*> cookies;

// What the SDK gets in the place of a cookie.
static_assert(sizeof(Request) <= sizeof(void*));
void* tokenOf(const Request& request) {
   return std::bit_cast<void*>(request);
}

void*& cookieOf(Request request) {
   if (request.kind == Request::Kind::queueSync) {
      request.life = 0;
   } else {
      request.place = 0;
   }
   return cookies[std::bit_cast<U64>(request)];
}

void answerMac(bf_dev_id_t dev, bf_dev_port_t port, bf_rmon_counter_array_t* values, void* token) {
   const auto request = std::bit_cast<Request>(token);
   listener->answering(request);
   macCallback(dev, port, values, cookieOf(request));
   listener->answered(request, values);
}

void answerSync(bf_dev_id_t dev, void* token) {
   const auto request = std::bit_cast<Request>(token);
   listener->answering(request);
   (request.kind == Request::Kind::queueSync ? queueCallback : tableCallback)(dev, cookieOf(request));
   listener->answered(request, nullptr);
}

// Runs `ask(token)`, and tells the listener.
template <class Ask>
auto passOn(Request::Kind kind, int device, unsigned place, void* cookie, Ask ask) {
   Request request{kind, static_cast<U8>(device), static_cast<U16>(place), 0};
   request.life = listener->lifeOf(request.device);
   cookieOf(request) = cookie;
   listener->requested(request);
   const auto status = ask(tokenOf(request));
   if (status != 0) {
      listener->refused(request);
   } else {
      listener->accepted(request);
   }
   return status;
}

} // namespace

SdkListener::SdkListener() {
   KILN_ASSERT(listener == nullptr);
   listener = this;
}

SdkListener::~SdkListener() {
   listener = nullptr;
   cookies.clear();
}

} // namespace Campaign

using namespace Campaign;

extern "C" bf_status_t __wrap_bf_port_mac_stats_hw_async_get(bf_dev_id_t dev, bf_dev_port_t port,
                                                             bf_port_mac_stats_cb callback, void* cookie) {
   macCallback = callback;
   return passOn(Request::Kind::mac, dev, static_cast<unsigned>(port), cookie, [&](void* token) {
      return __real_bf_port_mac_stats_hw_async_get(dev, port, answerMac, token);
   });
}

extern "C" pipe_status_t __wrap_pipe_mgr_stat_database_sync(pipe_sess_hdl_t session, dev_target_t target,
                                                            pipe_tbl_hdl_t table,
                                                            pipe_mgr_stat_tbl_sync_cback_fn callback,
                                                            void* cookie) {
   queueCallback = callback;
   return passOn(Request::Kind::queueSync, target.device_id, target.dev_pipe_id, cookie, [&](void* token) {
      return __real_pipe_mgr_stat_database_sync(session, target, table, answerSync, token);
   });
}

extern "C" U32 __wrap__ZN15ZelCountersIntf19counterHwSyncDirectEjjtjPFviPvES0_(
     U32 session, U32 device, U16 pipe, U32 table, ZelCountersIntf::SyncCallback callback, void* cookie) {
   tableCallback = callback;
   return passOn(Request::Kind::tableSync, static_cast<int>(device), pipe, cookie, [&](void* token) {
      return __real__ZN15ZelCountersIntf19counterHwSyncDirectEjjtjPFviPvES0_(session, device, pipe, table,
                                                                             answerSync, token);
   });
}

extern "C" U32 __wrap__ZN15ZelCountersIntf21counterHwSyncIndirectEjjtjPFviPvES0_(
     U32 session, U32 device, U16 pipe, U32 table, ZelCountersIntf::SyncCallback callback, void* cookie) {
   tableCallback = callback;
   return passOn(Request::Kind::tableSync, static_cast<int>(device), pipe, cookie, [&](void* token) {
      return __real__ZN15ZelCountersIntf21counterHwSyncIndirectEjjtjPFviPvES0_(session, device, pipe, table,
                                                                               answerSync, token);
   });
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
