/* Checks, as C, that the bridge's types have the layout of a manager's own, whose header is included beside it. */
#include <stddef.h>

#include "xa_long.h"
#include "xadtm_lp64.h"

#define SAME(theirs, ours, field) \
  _Static_assert(offsetof(theirs, field) == offsetof(ours, field), "a field is somewhere else")

_Static_assert(sizeof(XID) == 152 && sizeof(struct xadtm_lp64_xid) == 152, "an XID has 152 bytes");
_Static_assert(sizeof(struct xa_switch_t) == 128 && sizeof(struct xadtm_lp64_switch) == 128, "a record has 128 bytes");
SAME(XID, struct xadtm_lp64_xid, formatID);
SAME(XID, struct xadtm_lp64_xid, gtrid_length);
SAME(XID, struct xadtm_lp64_xid, bqual_length);
SAME(XID, struct xadtm_lp64_xid, data);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, flags);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, version);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, xa_open_entry);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, xa_close_entry);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, xa_start_entry);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, xa_end_entry);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, xa_rollback_entry);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, xa_prepare_entry);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, xa_commit_entry);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, xa_recover_entry);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, xa_forget_entry);
SAME(struct xa_switch_t, struct xadtm_lp64_switch, xa_complete_entry);

/* What a manager does that is linked with the bridge: it uses a record under its own type. */
const struct xa_switch_t *linked_record(void);
const struct xa_switch_t *linked_record(void) {
  return (const struct xa_switch_t *)&tarvex_TXS_xa_switch_lp64;
}
