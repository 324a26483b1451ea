// What the branch operations share: one request with its outcome, and the attach before a completing request.
#include "dtm/xal_dtm.h"
#include "record/xal_record.h"

int32_t dtm_request(XA_CONNECTION *conn, int32_t code, const XID *xid, int32_t status, DtmOutcomeList list) {
  return dtm_ret_to_xa(list, conn, xa__dtm_rpc(conn, code, xid, status));
}

int32_t dtm_attach_first(XA_CONNECTION *conn, const XID *xid, DtmOutcomeList attach_list) {
  const int32_t attached = dtm_request(conn, DTM_ATTACH_NOWAIT, xid, DTM_WANT_ATTACHED, attach_list);
  if (attached == XA_RETRY) {
    return XAER_PROTO;
  }
  if (attached != XA_OK) {
    return attached;
  }
  // Whatever became of the detach shows in the completing request that follows.
  static_cast<void>(xa__dtm_rpc(conn, DTM_DETACH_NOWAIT, xid, DTM_WANT_ENDED));
  return XA_OK;
}

bool dtm_is_heuristic(int32_t code) {
  return code == XA_HEURMIX || code == XA_HEURRB || code == XA_HEURCOM || code == XA_HEURHAZ;
}
