// The process-wide state of the transaction-manager frame: which personality is active, the global lock, the
// serialisation mutex and the flavours' start-up states. All of it is statically initialised and never freed.
#include "personality/xal_personality.h"

// No flavour: there is no operation to be called.
constexpr XA_PERSONALITY trvxal_nil_personality = [] {
  XA_PERSONALITY none{};
  none.tm_type = XATM_NONE;
  return none;
}();

constinit std::atomic<const XA_PERSONALITY *> trvxal_tm_personality{&trvxal_nil_personality};

constinit pthread_mutex_t _trv_xa_global_mutex = PTHREAD_MUTEX_INITIALIZER;

constinit std::atomic<int32_t> _xa_txs_serialize{0};

constinit int32_t _xa_mts_init_state = XAST_NONE;
constinit int32_t _xa_tux_init_state = XAST_NONE;
constinit int32_t _xa_txs_init_state = XAST_NONE;

// clang-format off
constexpr TmTypeMode tm_type_to_mode[] = {
    // TM type   mode
    {XATM_TUX,   0x30000},
    {XATM_TXS,   0x30000},
    {3,          0x30000},
    {XATM_MTS,   0x30000},
    {0,          0x30000},
};
// clang-format on
static_assert(tm_type_to_mode[sizeof tm_type_to_mode / sizeof tm_type_to_mode[0] - 1].tm_type == 0);
