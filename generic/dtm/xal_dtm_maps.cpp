// The outcome maps: which XA code the reply to a DTM request means, for every operation, as data.
//
// An operation names a list of tables, searched in order: its own first, then the shared ones for failures of the
// exchange (dtm_op_bad_map) and for the ordinary DTM codes (dtm_op_norm_map). The first row that matches decides; when
// none does, the end row of the list's last table does. All of it is constant data.
#include <cstddef>

#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "quillet.h"
#include "record/xal_record.h"

namespace {

// Which words of a row are compared: RPC result, transtat, rpcret, rpcstat.
constexpr uint32_t RPC_RESULT = 0x1000;
constexpr uint32_t TRANSTAT = 0x0100;
constexpr uint32_t RPCRET = 0x0010;
constexpr uint32_t RPCSTAT = 0x0001;
constexpr uint32_t BY_STATE = RPC_RESULT | TRANSTAT | RPCRET;
constexpr uint32_t BY_REPLY = RPC_RESULT | RPCRET;
constexpr uint32_t BY_ERROR = RPC_RESULT | RPCSTAT;
constexpr uint32_t BY_REPLY_ERROR = RPC_RESULT | RPCRET | RPCSTAT;
constexpr uint32_t END_ROW = 0;
constexpr int32_t ANY = 0;  // in a word that is not compared

// The shape of a table: one end row, and it is the last.
template <size_t Count>
constexpr bool ends_once(const DtmOutcome (&table)[Count]) {
  for (size_t row = 0; row + 1 < Count; ++row) {
    if (table[row].compare == 0) {
      return false;
    }
  }
  return table[Count - 1].compare == 0;
}

// clang-format off
constexpr DtmOutcome dtm_op_bad_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {RPC_RESULT,      CS_FAIL,    ANY,                  ANY,                ANY,                    XAER_RMERR},
    {RPCRET,          ANY,        ANY,                  DTM_REPLY_BROKEN,   ANY,                    XAER_RMERR},
    {RPCRET,          ANY,        ANY,                  DTM_REPLY_NOSTATUS, ANY,                    XAER_RMERR},
    {RPCSTAT,         ANY,        ANY,                  ANY,                DTM_LAYER_FAILED_1,     XAER_RMFAIL},
    {RPCSTAT,         ANY,        ANY,                  ANY,                DTM_LAYER_FAILED_2,     XAER_RMFAIL},
    {RPCSTAT,         ANY,        ANY,                  ANY,                DTM_LAYER_FAILED_3,     XAER_RMFAIL},
    {RPCSTAT,         ANY,        ANY,                  ANY,                DTM_BAD_REQUEST,        XAER_INVAL},
    {RPCSTAT,         ANY,        ANY,                  ANY,                DTM_FAILURE,            XAER_RMERR},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_op_norm_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_UNKNOWN,            XAER_NOTA},
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_DUPLICATE,          XAER_DUPID},
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_BUSY,               XAER_RMFAIL},
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_WRONG_STATE,        XAER_PROTO},
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_ATTACHED_ELSEWHERE, XAER_PROTO},
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_REFUSED,            XAER_RMERR},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_ABORTONLY,  DTM_REPLY_STATUS,   ANY,                    XA_RBROLLBACK},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_COMMITTED,  DTM_REPLY_STATUS,   ANY,                    XAER_NOTA},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_ROLLEDBACK, DTM_REPLY_STATUS,   ANY,                    XAER_NOTA},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_FORGOTTEN,  DTM_REPLY_STATUS,   ANY,                    XAER_NOTA},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_UNSETTLED,  DTM_REPLY_STATUS,   ANY,                    XA_RETRY},
    {BY_REPLY,        CS_SUCCEED, ANY,                  DTM_REPLY_STATUS,   ANY,                    XAER_PROTO},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_inprogress_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_BUSY,               XA_RETRY},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_start_nf_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_STATE,        CS_SUCCEED, DTM_STATE_UNKNOWN,    DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_start_jn_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_STATE,        CS_SUCCEED, DTM_STATE_DETACHED,   DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_SUSPENDED,  DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_ENDED,      DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_WRONG_STATE,        XA_RETRY},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_start_rs_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_STATE,        CS_SUCCEED, DTM_STATE_DETACHED,   DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_ENDED,      DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_UNKNOWN,    DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_WRONG_STATE,        XA_RETRY},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_end_succ_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_STATE,        CS_SUCCEED, DTM_STATE_ATTACHED,   DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_SUSPENDED,  DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_STATE,        CS_SUCCEED, DTM_STATE_DETACHED,   DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_end_susp_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_STATE,        CS_SUCCEED, DTM_STATE_ATTACHED,   DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_attprep_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_BUSY,               XA_OK},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_prepare_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_REPLY,        CS_SUCCEED, ANY,                  DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_REPLY_ERROR,  CS_SUCCEED, ANY,                  DTM_REPLY_ERROR,    DTM_READ_ONLY,          XA_RDONLY},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

// One table serves the forced-attach lists of prepare and of one-phase commit.
constexpr DtmOutcome dtm_force_att_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_STATE,        CS_SUCCEED, DTM_STATE_ATTACHED,   DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_commit_nf_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_REPLY,        CS_SUCCEED, ANY,                  DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_commit_1p_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_REPLY,        CS_SUCCEED, ANY,                  DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_REPLY_ERROR,  CS_SUCCEED, ANY,                  DTM_REPLY_ERROR,    DTM_READ_ONLY,          XA_OK},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

// Whatever else the attach before a rollback says, the rollback is sent.
constexpr DtmOutcome dtm_rollback_att_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_REPLY_ERROR,  CS_SUCCEED, ANY,                  DTM_REPLY_ERROR,    DTM_WRONG_STATE,        XA_RBOTHER},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XA_OK},
};

constexpr DtmOutcome dtm_rollback_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_REPLY,        CS_SUCCEED, ANY,                  DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_REPLY_ERROR,  CS_SUCCEED, ANY,                  DTM_REPLY_ERROR,    DTM_ATTACHED_ELSEWHERE, XA_RBOTHER},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_dtcrollback_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_REPLY,        CS_SUCCEED, ANY,                  DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {BY_REPLY_ERROR,  CS_SUCCEED, ANY,                  DTM_REPLY_ERROR,    DTM_REFUSED,            XA_RBOTHER},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_forget_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_REPLY,        CS_SUCCEED, ANY,                  DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_status_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_REPLY,        CS_SUCCEED, ANY,                  DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_await_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_REPLY,        CS_SUCCEED, ANY,                  DTM_REPLY_STATUS,   ANY,                    XA_RETRY},
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_UNKNOWN,            XAER_NOTA},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};

constexpr DtmOutcome dtm_check_map[] = {
    // compare        result      transtat              rpcret              rpcstat                 XA code
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_UNKNOWN,            XAER_NOTA},
    {BY_ERROR,        CS_SUCCEED, ANY,                  ANY,                DTM_DUPLICATE,          XAER_DUPID},
    {BY_REPLY,        CS_SUCCEED, ANY,                  DTM_REPLY_STATUS,   ANY,                    XA_OK},
    {END_ROW,         ANY,        ANY,                  ANY,                ANY,                    XAER_RMERR},
};
// clang-format on

static_assert(ends_once(dtm_op_bad_map) && ends_once(dtm_op_norm_map) && ends_once(dtm_inprogress_map) &&
              ends_once(dtm_start_nf_map) && ends_once(dtm_start_jn_map) && ends_once(dtm_start_rs_map) &&
              ends_once(dtm_end_succ_map) && ends_once(dtm_end_susp_map) && ends_once(dtm_attprep_map) &&
              ends_once(dtm_prepare_map) && ends_once(dtm_force_att_map) && ends_once(dtm_commit_nf_map) &&
              ends_once(dtm_commit_1p_map) && ends_once(dtm_rollback_att_map) && ends_once(dtm_rollback_map) &&
              ends_once(dtm_dtcrollback_map) && ends_once(dtm_forget_map) && ends_once(dtm_status_map) &&
              ends_once(dtm_await_map) && ends_once(dtm_check_map));
static_assert(sizeof(DtmOutcome) == 6 * sizeof(int32_t));

bool row_matches(const DtmOutcome &row, const XA_CONNECTION &conn, int32_t rpc_result) {
  return ((row.compare & 0xF000) == 0 || row.rpc_result == rpc_result) &&
         ((row.compare & 0x0F00) == 0 || row.transtat == conn.transtat) &&
         ((row.compare & 0x00F0) == 0 || row.rpcret == conn.rpcret) &&
         ((row.compare & 0x000F) == 0 || row.rpcstat == conn.rpcstat);
}

}  // namespace

// clang-format off
const DtmOutcomeTable dtm_start_nf_maps[]          = {dtm_start_nf_map, dtm_op_bad_map, dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_start_jn_maps[]          = {dtm_start_jn_map, dtm_op_bad_map, dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_start_rs_maps[]          = {dtm_start_rs_map, dtm_op_bad_map, dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_end_succ_maps[]          = {dtm_end_succ_map, dtm_op_bad_map, dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_end_susp_maps[]          = {dtm_end_susp_map, dtm_op_bad_map, dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_attprep_maps[]           = {dtm_attprep_map, dtm_start_jn_map, dtm_op_bad_map,
                                                      dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_prepare_maps[]           = {dtm_inprogress_map, dtm_prepare_map, dtm_op_bad_map,
                                                      dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_prepare_frc_att_maps[]   = {dtm_inprogress_map, dtm_force_att_map, dtm_prepare_map,
                                                      dtm_op_bad_map, dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_commit_nf_maps[]         = {dtm_inprogress_map, dtm_commit_nf_map, dtm_op_bad_map,
                                                      dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_commit_1p_maps[]         = {dtm_inprogress_map, dtm_commit_1p_map, dtm_op_bad_map,
                                                      dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_commit_1p_frc_att_maps[] = {dtm_inprogress_map, dtm_force_att_map, dtm_commit_1p_map,
                                                      dtm_op_bad_map, dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_rollback_att_maps[]      = {dtm_inprogress_map, dtm_rollback_att_map, nullptr};
const DtmOutcomeTable dtm_rollback_maps[]          = {dtm_inprogress_map, dtm_rollback_map, dtm_op_bad_map,
                                                      dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_dtcrollback_maps[]       = {dtm_inprogress_map, dtm_dtcrollback_map, dtm_op_bad_map,
                                                      dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_forget_maps[]            = {dtm_forget_map, dtm_op_bad_map, dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_status_maps[]            = {dtm_status_map, dtm_op_bad_map, dtm_op_norm_map, nullptr};
const DtmOutcomeTable dtm_await_maps[]             = {dtm_await_map, dtm_inprogress_map, dtm_op_bad_map, nullptr};
const DtmOutcomeTable dtm_check_maps[]             = {dtm_check_map, nullptr};
// clang-format on

// The branch of the readiness probe. No transaction manager can name it: its formatID marks a null XID.
const XID dtm_check_xid = {-1, 1, 1, {}};

int32_t dtm_ret_to_xa(DtmOutcomeList list, const XA_CONNECTION *conn, int32_t rpc_result) {
  const TraceScope trace("dtm_ret_to_xa", TRACE_ZDB);
  int32_t fallback = XAER_RMERR;
  for (DtmOutcomeList table = list; *table != nullptr; ++table) {
    const DtmOutcome *row = *table;
    for (; row->compare != 0; ++row) {
      if (row_matches(*row, *conn, rpc_result)) {
        return trace.xa(row->xa_code);
      }
    }
    fallback = row->xa_code;
  }
  return trace.xa(fallback);
}
