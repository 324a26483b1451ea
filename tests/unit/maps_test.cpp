// The outcome maps where lists disagree: each list against the replies that different tables claim.
#include <gtest/gtest.h>

#include "scene.h"
#include "xal_dtm.h"

using namespace fake;

namespace {

constexpr int32_t OK = XA_OK, RTRY = XA_RETRY, RDO = XA_RDONLY, RB = XA_RBROLLBACK, OTH = XA_RBOTHER;
constexpr int32_t ERR = XAER_RMERR, NOTA = XAER_NOTA, INV = XAER_INVAL, PRO = XAER_PROTO, FAIL = XAER_RMFAIL;

// An RPC result with the fields that go with it.
struct Outcome {
  const char *name;
  int32_t rpc_result, rpcret, rpcstat, transtat;
};

constexpr Outcome replied(const char *name, int32_t status) {
  return status < 0 ? Outcome{name, CS_SUCCEED, 1, status, -1} : Outcome{name, CS_SUCCEED, 0, 0, status};
}

constexpr Outcome outcomes[] = {
    replied("0", 0),
    replied("3", 3),
    replied("6", 6),
    replied("101", 101),
    replied("255", 255),
    replied("-9", -9),
    replied("-256", -256),
    replied("-4", -4),
    replied("-128", -128),
    replied("-1", -1),
    replied("-2", -2),
    replied("-5", -5),
    replied("-16777215", -16777215),
    {"@$rpcerror -9", CS_FAIL, -2, -9, -1},
    {"broken off after -2", CS_CANCELED, -4, -2, -1},
    {"not sent, last reply -5", CS_BUSY, 1, -5, -1},
    {"state 5 with status 3", CS_SUCCEED, 1, 5, 3},
};

struct Row {
  const char *name;
  DtmOutcomeList list;
  int32_t codes[17];
};

// clang-format off
const Row lists[] = {
    // 0     3     6     101   255   -9    -256  -4    -128  -1    -2    -5    -FF.. error broke unsnt state
    {"start_nf", dtm_start_nf_maps,
     {OK,   PRO,  RB,   NOTA, RTRY, FAIL, ERR,  PRO,  PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"start_jn", dtm_start_jn_maps,
     {PRO,  OK,   RB,   NOTA, RTRY, FAIL, ERR,  RTRY, PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"start_rs", dtm_start_rs_maps,
     {OK,   PRO,  RB,   NOTA, RTRY, FAIL, ERR,  RTRY, PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"end_succ", dtm_end_succ_maps,
     {PRO,  OK,   RB,   NOTA, RTRY, FAIL, ERR,  PRO,  PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"end_susp", dtm_end_susp_maps,
     {PRO,  PRO,  RB,   NOTA, RTRY, FAIL, ERR,  PRO,  PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"attprep", dtm_attprep_maps,
     {PRO,  OK,   RB,   NOTA, RTRY, OK,   ERR,  RTRY, PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"prepare", dtm_prepare_maps,
     {OK,   OK,   OK,   OK,   OK,   RTRY, RDO,  PRO,  PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"prepare forced", dtm_prepare_frc_att_maps,
     {OK,   OK,   OK,   OK,   OK,   RTRY, RDO,  PRO,  PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"commit_nf", dtm_commit_nf_maps,
     {OK,   OK,   OK,   OK,   OK,   RTRY, ERR,  PRO,  PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"commit_1p", dtm_commit_1p_maps,
     {OK,   OK,   OK,   OK,   OK,   RTRY, OK,   PRO,  PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"commit_1p forced", dtm_commit_1p_frc_att_maps,
     {OK,   OK,   OK,   OK,   OK,   RTRY, OK,   PRO,  PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"rollback_att", dtm_rollback_att_maps,
     {OK,   OK,   OK,   OK,   OK,   RTRY, OK,   OTH,  OK,   OK,   OK,   OK,   OK,   OK,   OK,   OK,   OK}},
    {"rollback", dtm_rollback_maps,
     {OK,   OK,   OK,   OK,   OK,   RTRY, ERR,  PRO,  OTH,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"rollback forced", dtm_dtcrollback_maps,
     {OK,   OK,   OK,   OK,   OK,   RTRY, ERR,  PRO,  PRO,  OTH,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"forget", dtm_forget_maps,
     {OK,   OK,   OK,   OK,   OK,   FAIL, ERR,  PRO,  PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"status", dtm_status_maps,
     {OK,   OK,   OK,   OK,   OK,   FAIL, ERR,  PRO,  PRO,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"await", dtm_await_maps,
     {RTRY, RTRY, RTRY, RTRY, RTRY, RTRY, ERR,  ERR,  ERR,  ERR,  NOTA, INV,  FAIL, ERR,  ERR,  INV,  ERR}},
    {"check", dtm_check_maps,
     {OK,   OK,   OK,   OK,   OK,   ERR,  ERR,  ERR,  ERR,  ERR,  NOTA, ERR,  ERR,  ERR,  ERR,  ERR,  ERR}},
};
// clang-format on

using Maps = Scene;

TEST_F(Maps, lists_disagree_as_their_tables_are_ordered) {
  for (const Row &row : lists) {
    for (size_t index = 0; index < std::size(outcomes); ++index) {
      const Outcome &outcome = outcomes[index];
      conn.rpcret = outcome.rpcret;
      conn.rpcstat = outcome.rpcstat;
      conn.transtat = outcome.transtat;
      EXPECT_EQ(dtm_ret_to_xa(row.list, &conn, outcome.rpc_result), row.codes[index])
          << row.name << ", reply " << outcome.name;
    }
  }
}

}  // namespace
