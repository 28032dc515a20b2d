// Marks what a shared library of the system shows to others; everything else stays hidden.
#pragma once

#define TAV_EXPORT __attribute__((visibility("default")))
