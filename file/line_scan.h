// Data-line scanning of the matrix and vector files: exactly what sscanf gives with the
// formats "%d %d %1s", "%d %d %lg %1s", "%d %d %lg %lg %1s", "%lg %1s" and "%lg %lg %1s",
// accepted when the count of items equals the count before the "%1s" probe.
#pragma once

namespace kwil {

// Whether the fast path may be used: the decimal point of the current locale is "." and
// the rounding mode is to nearest. Callers ask once per file.
bool lineScanFastOk();

// A line is accepted when sscanf with the matching format returns exactly nInt + nDbl items:
// every value read and nothing but blanks after the last one. On acceptance ints[] and dbls[]
// hold the values sscanf stores; on rejection their contents are unspecified.
// Lines of plain decimal numbers are converted directly; every other line goes to sscanf.
bool scanLine(const char* line, int nInt, int* ints, int nDbl, double* dbls, bool fastOk);

// The same decision made by sscanf alone (the reference of the differential tests).
bool scanLineReference(const char* line, int nInt, int* ints, int nDbl, double* dbls);

// Whether the line holds a non-blank character, as sscanf(line, "%1s", probe) == 1 decides.
bool lineHasToken(const char* line);

} // namespace kwil
