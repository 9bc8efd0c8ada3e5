#pragma once
// An episode the listener has heard to its end is Listened: the player keeps
// no flag for that, so it is read from the position it stores for the
// program, in the record the player keeps per program key.

#include "SubscriptionStore.h"

#include "platform/Registry.h"

namespace feldrun {

// How far before its end a stored position still counts as the end reached.
// The player stores the program's length itself when it plays to the end; a
// listener who stops in the last seconds of music or silence has heard the
// episode too.  At most a tenth of a short program counts so.
inline constexpr std::uint32_t kEndReachedMarginMs = 2000;
inline constexpr std::uint32_t kShortProgramMargins = 10;

// Marks Listened every Ready episode of the subscription whose program's
// stored position lies within the margin of its end.  Episodes whose
// program cannot be read are left as they are.  Returns how many it marked;
// saving the subscription is the caller's.
int MarkListened(talvo::Registry& registry, Subscription& subscription);

} // namespace feldrun
