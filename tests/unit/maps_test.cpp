// The outcome maps where lists disagree: each list against the replies that different tables claim.
#include <gtest/gtest.h>

#include "dtm/xal_dtm.h"
#include "scene.h"

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
  DtmOutcomeList list;
  int32_t codes[10];
  int32_t others[7] = {NOTA, INV, FAIL, ERR, ERR, INV, ERR};
};

// clang-format off
const Row lists[] = {
    // 0                           3     6     101   255   -9    -256  -4    -128  -1
    {dtm_start_nf_maps,           {OK,   PRO,  RB,   NOTA, RTRY, FAIL, ERR,  PRO,  PRO,  ERR}},
    {dtm_start_jn_maps,           {PRO,  OK,   RB,   NOTA, RTRY, FAIL, ERR,  RTRY, PRO,  ERR}},
    {dtm_start_rs_maps,           {OK,   PRO,  RB,   NOTA, RTRY, FAIL, ERR,  RTRY, PRO,  ERR}},
    {dtm_end_succ_maps,           {PRO,  OK,   RB,   NOTA, RTRY, FAIL, ERR,  PRO,  PRO,  ERR}},
    {dtm_end_susp_maps,           {PRO,  PRO,  RB,   NOTA, RTRY, FAIL, ERR,  PRO,  PRO,  ERR}},
    {dtm_attprep_maps,            {PRO,  OK,   RB,   NOTA, RTRY, OK,   ERR,  RTRY, PRO,  ERR}},
    {dtm_prepare_maps,            {OK,   OK,   OK,   OK,   OK,   RTRY, RDO,  PRO,  PRO,  ERR}},
    {dtm_prepare_frc_att_maps,    {OK,   OK,   OK,   OK,   OK,   RTRY, RDO,  PRO,  PRO,  ERR}},
    {dtm_commit_nf_maps,          {OK,   OK,   OK,   OK,   OK,   RTRY, ERR,  PRO,  PRO,  ERR}},
    {dtm_commit_1p_maps,          {OK,   OK,   OK,   OK,   OK,   RTRY, OK,   PRO,  PRO,  ERR}},
    {dtm_commit_1p_frc_att_maps,  {OK,   OK,   OK,   OK,   OK,   RTRY, OK,   PRO,  PRO,  ERR}},
    {dtm_rollback_att_maps,       {OK,   OK,   OK,   OK,   OK,   RTRY, OK,   OTH,  OK,   OK},
     {OK, OK, OK, OK, OK, OK, OK}},
    {dtm_rollback_maps,           {OK,   OK,   OK,   OK,   OK,   RTRY, ERR,  PRO,  OTH,  ERR}},
    {dtm_dtcrollback_maps,        {OK,   OK,   OK,   OK,   OK,   RTRY, ERR,  PRO,  PRO,  OTH}},
    {dtm_forget_maps,             {OK,   OK,   OK,   OK,   OK,   FAIL, ERR,  PRO,  PRO,  ERR}},
    {dtm_status_maps,             {OK,   OK,   OK,   OK,   OK,   FAIL, ERR,  PRO,  PRO,  ERR}},
    {dtm_await_maps,              {RTRY, RTRY, RTRY, RTRY, RTRY, RTRY, ERR,  ERR,  ERR,  ERR}},
    {dtm_check_maps,              {OK,   OK,   OK,   OK,   OK,   ERR,  ERR,  ERR,  ERR,  ERR},
     {NOTA, ERR, ERR, ERR, ERR, ERR, ERR}},
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
      EXPECT_EQ(dtm_ret_to_xa(row.list, &conn, outcome.rpc_result),
                index < 10 ? row.codes[index] : row.others[index - 10])
          << "list " << &row - lists << ", reply " << outcome.name;
    }
  }
}

}  // namespace
