// Sound playing state shared by every sound stimulus: the test time until
// which a sound is still playing.
#pragma once

// True while the test clock is before the playing-until time.
bool wav_playing();
long wav_playing_until();
// Raises the playing-until time to t; never lowers it.
void wav_playing_until(long t);
void wav_reset();
