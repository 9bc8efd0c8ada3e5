#pragma once
// The feldrun window's pictures for talvo-screenshots.

#include "platform/Registry.h"

#include <QString>

// The window with a few subscriptions, their pictures and a download under
// way, and the subscribe dialog, as PNGs in out; scratch is a temporary
// folder for the subscriptions' pictures.  Returns how many could not be written.
int SaveFeldrunScreens(talvo::Registry& registry, const QString& scratch, const QString& out);
