#pragma once
// SIGTERM and SIGINT delivered to the UI thread as an ordinary callback, so a
// session that ends closes the player the same way its Exit command does.
#include <functional>

namespace talvo {

// Installs the handlers; call once, after the application object exists.
void OnTerminationSignal(std::function<void()> handler);

} // namespace talvo
