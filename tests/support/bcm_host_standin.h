#pragma once
// What a test may ask of the stand-in for the board's host library, beside the functions of the real one.

extern "C" {

/// Sets result and reply of one general command; others fail with -1. Null reply forgets all.
void bcm_standin_reply(const char* command, int result, const char* reply);

/// Every call so far: "init", "deinit", "command FORMAT TEXT SIZE", "peripheral address" and so on, each
/// ended by a line feed. Valid until the next call.
const char* bcm_standin_calls();
}
