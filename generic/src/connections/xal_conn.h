// The connection layer: the operations that find, make, settle and close connections. All of them run under the
// serialisation mutex unless their comment says more.
#pragma once

#include <cstdint>

#include "base/xal_lookup_results.h"
#include "config/xal_settings.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"

// Lookup flags of xc_get: which connections will do. States come before a match, a match before an unused connection,
// and a new one is made last.
inline constexpr uint32_t XCF_ANY = 0x01;      // the first that nobody holds, whatever its state
inline constexpr uint32_t XCF_MATCH = 0x02;    // one that serves the XID
inline constexpr uint32_t XCF_UNUSED = 0x04;   // a free one, which becomes XCS_INUSE
inline constexpr uint32_t XCF_OPEN = 0x08;     // a new one
inline constexpr uint32_t XCF_ASSOC = 0x10;    // one with an associated branch
inline constexpr uint32_t XCF_SUSPEND = 0x20;  // one with a suspended branch
inline constexpr uint32_t XCF_RECOVER = 0x40;  // one with an open recovery scan

// ---- Lookup ---------------------------------------------------------------------------------------------------------

// Finds the calling thread identity's connection for rmid: the one that serves xid (read only with XCF_MATCH), one in a
// wanted state, an unused one, or a new one. Returns an XCRET code, or the XA code of a failed xc_open. On a hand-out
// *out holds the connection, held by the caller until xc_release; otherwise *out is null. May give the serialisation
// mutex up, while connecting or while another thread holds the connection looked for.
int32_t xc_get(int32_t rmid, const XID *xid, XA_CONNECTION **out, uint32_t flags);

// Makes and links a new connection. Entered with the LRM's mutex held; on XA_OK it is released and *out is held, in
// XCS_OPENED. Otherwise *out is null: XAER_RMERR without memory, or xc_connect's code; closing the resource manager is
// the caller's. The serialisation mutex is given up meanwhile (see xc_connect).
int32_t xc_open(xa_lrminfo *lrm, XA_CONNECTION **out);

// Takes a hold on a record for the calling thread, and gives it back (with the record's mutex).
void xc_hold(XA_CONNECTION *conn);
void xc_release(XA_CONNECTION *conn);

// Gives the serialisation mutex up for a moment, to let another thread get on with what the caller waits for.
void xc_wait_briefly();

// Waits until no other thread of conn's LRM is at work on the branch. conn is held, and must not carry the branch
// itself meanwhile: its looker would wait for the caller.
void xc_await_branch(const XA_CONNECTION *conn, const XID &xid);

// True while conn is still a record of rmid in the calling thread identity. To be asked, after a nested verb, before a
// record that was released meanwhile is used again.
bool xc_still_there(int32_t rmid, const XA_CONNECTION *conn);

// Makes the record the only one of its LRM that carries its branch: others that still keep its XID from a completed
// request, while this one's was on no record yet, forget it.
void xc_forget_branch(const XA_CONNECTION *conn);

// Debug builds: no connection is held by the calling thread, and every connection of rmid is in a settled state.
void xc_assert_settled(int32_t rmid);

// ---- Making and closing ---------------------------------------------------------------------------------------------

// Connects the record to its LRM's server: XA_OK, XAER_RMERR, or XAER_INVAL when the readiness check rejects the
// server. On failure no handle is left. The serialisation mutex is given up while the readiness check waits for the
// server, but not for the login.
int32_t xc_connect(XA_CONNECTION *conn);
// Replaces a held record's server connection. On XA_OK *out is conn, still held, in XCS_INUSE; otherwise *out is null,
// the hold is gone, the record waits in XCS_CLOSED, and the code is xc_connect's. Gives the serialisation mutex up.
int32_t xc_reopen_conn(int32_t rmid, XA_CONNECTION *conn, XA_CONNECTION **out);
// Shuts the server connection down and releases the held record, which is then in XCS_CLOSED. Always XA_OK. Gives the
// serialisation mutex up while the client library works; the hold keeps everybody else off the record meanwhile.
int32_t xc_close(XA_CONNECTION *conn);

// ---- Message callbacks while connecting -----------------------------------------------------------------------------

// Both run under the serialisation mutex, which nothing here gives up, and answer the code of the client call that
// failed, else CS_SUCCEED.

// Saves the callbacks that the new connection has inherited and puts the library's own in their place.
int32_t xc_install_callbacks(XA_CONNECTION *conn);
// Gives the connection back what it had: the application's callbacks, or else the client library's diagnostics, with no
// message kept. conn may be null.
int32_t xc_deinstall_callbacks(XA_CONNECTION *conn);
// Finds out, once a process, by which callbacks the diagnostics are recognised.
int32_t xc_setup_ctdiagcb(QLT_CONNECTION *connection);
// The library's own: they write the message to the log, and always answer CS_SUCCEED. Called by the client library, in
// the thread that connects, with the serialisation mutex held.
extern "C" int32_t xaclientmsg_cb(CS_CONTEXT *context, QLT_CONNECTION *connection, QLT_CLIENT_MESSAGE *message);
extern "C" int32_t xaservermsg_cb(CS_CONTEXT *context, QLT_CONNECTION *connection, QLT_SERVER_MESSAGE *message);

// ---- Application objects --------------------------------------------------------------------------------------------

// Closes every cursor, and the statements behind them, that application code left on the LRM under the calling thread's
// identity. CS_SUCCEED when none is left, CS_FAIL when one could not be removed. The caller holds conn and the
// serialisation mutex, which is kept throughout, also while the server answers; so do the ones below.
int32_t xc_obj_cln_curs(CS_CONTEXT *context, XA_CONNECTION *conn);
// Closes and deallocates the command's cursor: CS_SUCCEED, CS_FAIL when its status cannot be had, else the code of the
// client call that failed.
int32_t xc__obj_curs_dealloc(QLT_COMMAND *command);
// Removes the statement that the cursor's data name: its entry, and at the server. Always CS_SUCCEED: a statement that
// is not there, or cannot be dropped, is only reported.
int32_t xa__obj_cln_dynsql(CS_CONTEXT *context, XA_CONNECTION *conn, const void *cursor_data,
                           const QLT_OBJECT_NAME *cursor_name, const QLT_OBJECT_DATA *cursor);
// Deallocates a statement at the server and drops its command; failures are reported. The first two are not used.
int32_t xa__obj_dynsql_drop(XA_CONNECTION *conn, const void *cursor_data, const QLT_OBJECT_NAME *name,
                            const QLT_OBJECT_DATA *data);
// Writes an entry to the log under the verbose bit of the trace mask; name and data may be null.
void xc__obj_log(const char *title, const QLT_OBJECT_NAME *name, const QLT_OBJECT_DATA *data);
// The bytes as hexadecimal digits in groups of four bytes, as many as the size bytes of out have room for; a length of
// QLT_NULLTERM: as the text that they are.
void xc__obj_format(const void *bytes, int32_t length, char *out, int32_t size);

// ---- Settings -------------------------------------------------------------------------------------------------------

// The library's own settings.
extern const XA_SETTING dtm_set_list[];

// Applies the rows whose flags hold every bit of the mask, in order. conn may be null for context rows. 0 when a row
// marked XS_FATAL failed, else 1.
int32_t xc_set_values(XA_CONNECTION *conn, const XA_SETTING *list, uint32_t mask);
