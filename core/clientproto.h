// The client channel as both ends see it: the codes of the notices that
// carry it, the refusal texts, and the text encoding of pushed data.
//
// A pull (the server reads a client file):
//   INFO notice, SQLSTATE kPullNotice, message = the client file name,
//   detail = the most bytes the server takes (the document limit, or less
//   under temp_file_limit); then the copy-in sub-protocol: the client sends
//   the file's bytes as CopyData messages of at most kChunkSize bytes and
//   ends with CopyDone, or refuses with CopyFail whose text begins with one
//   of the kRefuse* words.  A client that would send more than the limit
//   refuses with kRefuseLimit instead; the server stops at the limit in any
//   case.
// A push (the server writes a client file), only to sessions that set
// document.client_channel = on:
//   INFO kPushBegin   message = the client file name, detail = its size
//   INFO kPushData    message = base64 of at most kChunkSize bytes
//   INFO kPushEnd     message = the number of bytes sent
#pragma once

#include <cstddef>
#include <string>

namespace dt::channel {

constexpr const char *kPullNotice = "XDC01";
constexpr const char *kPushBegin = "XDC02";
constexpr const char *kPushData = "XDC03";
constexpr const char *kPushEnd = "XDC04";

// Largest number of file bytes in one data message, both directions.
constexpr size_t kChunkSize = 8192;

// The setting a client sets when it connects to say it serves the channel.
constexpr const char *kSettingName = "document.client_channel";

// First word of a CopyFail text: why the client refused.
constexpr const char *kRefuseOpen = "open";         // could not open the file
constexpr const char *kRefuseRead = "read";         // a read failed part way
constexpr const char *kRefuseInterrupt = "interrupt";  // the user interrupted
constexpr const char *kRefuseLimit = "limit";       // the file is longer than the pull's limit

bool IsChannelCode(const char *sqlstate);

// Standard base64 (RFC 4648) with padding, no line breaks.
std::string Base64Encode(const void *data, size_t n);
// Decodes base64; false on any character outside the alphabet, bad padding
// or a length that is not a multiple of four.
bool Base64Decode(const std::string &text, std::string &out);

}  // namespace dt::channel
