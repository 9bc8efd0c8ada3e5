#pragma once
// The skinned display as a screen reader meets it: a group holding the ten
// skin buttons (each a button that can be pressed) and the texts it shows
// (title, time, total, section), so that a listener who cannot see the screen
// hears what it says and can use every button.
namespace talvo {

// Makes Qt's accessibility ask for these interfaces; safe to call often.
void InstallSkinnedDisplayAccessibility();

} // namespace talvo
