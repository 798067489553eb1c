#pragma once

// Names the calling thread. Linux allows 15 bytes: a longer name is cut
// (at a UTF-8 character boundary), never refused. A null name changes nothing.
void DplSetCurrentThreadName(const char* name);
