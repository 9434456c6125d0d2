#pragma once

#include <vector>

namespace wpp_test {

/// The calls of this program that can be spoilt.
enum class SpoiltCall { kRecv, kSend, kAccept, kSocket, kPoll };

/// What becomes of a call instead of an errno: it is as ever, or it moves no more than one byte.
enum Spoiling : int { kAsEver = 0, kOneByte = -1 };

/// What becomes of the next calls of this kind, one after the other; those behind are as ever.
void spoil(SpoiltCall call, std::vector<int> fates);

/// What becomes of four calls as an input says it, two bits each: as ever, one byte, EINTR, ECONNRESET.
std::vector<int> fatesFrom(unsigned bits);

/// All calls are as ever again.
void spoilNothing();

/// Whether every fate has been met.
bool nothingIsSpoilt();

/// No call of this thread is spoilt.
void spareThisThread();

/// What becomes of a call of this kind that is made now.
int nextFate(SpoiltCall call);

}  // namespace wpp_test
