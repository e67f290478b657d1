#pragma once

// The staves a score can have. Stored as int in SheetMusicSettings::track_clefs.
enum Clef { TREBLE = 0, BASS = 1, TAB = 2 };
