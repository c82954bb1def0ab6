#pragma once

/** The next power of two that is at least `v`; 0 for 0 and where that power exceeds 32 bits. */
unsigned roundup(unsigned v);
