// The numbers that the server's DTM procedures answer with, for the library and for servers that speak the protocol.
#pragma once

#include <cstdint>

// States of a branch. A status of 0 or more is the state that the branch was in before the request.
inline constexpr int32_t DTM_STATE_UNKNOWN = 0;    // the server has no such branch
inline constexpr int32_t DTM_STATE_ATTACHED = 1;   // a session works in it
inline constexpr int32_t DTM_STATE_ENDED = 2;      // its work is done, and no session has it
inline constexpr int32_t DTM_STATE_SUSPENDED = 3;  // to be resumed by the session that suspended it
inline constexpr int32_t DTM_STATE_DETACHED = 4;   // suspended, and any session may go on with it
inline constexpr int32_t DTM_STATE_ABORTONLY = 6;  // it can only be rolled back
inline constexpr int32_t DTM_STATE_PREPARED = 7;   // its outcome is the transaction manager's to say
inline constexpr int32_t DTM_STATE_COMMITTED = 100;
inline constexpr int32_t DTM_STATE_ROLLEDBACK = 101;
inline constexpr int32_t DTM_STATE_FORGOTTEN = 102;
inline constexpr int32_t DTM_STATE_UNSETTLED = 255;          // the server cannot tell yet; ask again
inline constexpr int32_t DTM_STATE_HEUR_COMMITTED = 65548;   // an operator committed it; to be forgotten
inline constexpr int32_t DTM_STATE_HEUR_ROLLEDBACK = 65549;  // an operator rolled it back; to be forgotten

// Refusals: a status below 0.
inline constexpr int32_t DTM_REFUSED = -1;                // the request failed, and the branch is as it was
inline constexpr int32_t DTM_UNKNOWN = -2;                // there is no such branch
inline constexpr int32_t DTM_DUPLICATE = -3;              // there is one already
inline constexpr int32_t DTM_WRONG_STATE = -4;            // not in this state, or attached to another session
inline constexpr int32_t DTM_BAD_REQUEST = -5;            // the request itself makes no sense
inline constexpr int32_t DTM_FAILURE = -6;                // the server's DTM layer has failed
inline constexpr int32_t DTM_BUSY = -9;                   // the branch is still busy with an earlier request
inline constexpr int32_t DTM_ATTACHED_ELSEWHERE = -128;   // a rollback waits until another session lets the branch go
inline constexpr int32_t DTM_READ_ONLY = -256;            // a vote: nothing was changed, and the branch is gone
inline constexpr int32_t DTM_LAYER_FAILED_1 = -0xFFFFFF;  // three ways in which the server's DTM layer cannot be had
inline constexpr int32_t DTM_LAYER_FAILED_2 = -0xFFFFFE;
inline constexpr int32_t DTM_LAYER_FAILED_3 = -0xFFFFFD;

// "@flags": options of a request.
inline constexpr int32_t DTM_OPTION_NOWAIT = 0x2;           // attach: do not wait until another session lets go
inline constexpr int32_t DTM_OPTION_UNDO_ATTACH = 0x4;      // detach: takes an attach without waiting back
inline constexpr int32_t DTM_OPTION_NEW = 0x10;             // begin: there must be no such branch yet
inline constexpr int32_t DTM_OPTION_ONE_PHASE = 0x20;       // commit: without a prepare
inline constexpr int32_t DTM_OPTION_BACKGROUND = 0x100;     // rollback: done when the session that works in it lets go
inline constexpr int32_t DTM_OPTION_FORCE_ATTACH = 0x6000;  // complete the branch without an attach before

// The "@status" values: the state that the caller wants the branch in.
inline constexpr int32_t DTM_WANT_ANY = 0;
inline constexpr int32_t DTM_WANT_ATTACHED = 1;
inline constexpr int32_t DTM_WANT_ENDED = 2;
inline constexpr int32_t DTM_WANT_SUSPENDED = 3;
inline constexpr int32_t DTM_WANT_MIGRATED = 4;
inline constexpr int32_t DTM_WANT_ABORTONLY = 6;
inline constexpr int32_t DTM_WANT_PREPARED = 7;
inline constexpr int32_t DTM_WANT_COMMITTED = 100;
inline constexpr int32_t DTM_WANT_ROLLEDBACK = 101;
inline constexpr int32_t DTM_WANT_FORGOTTEN = 102;
