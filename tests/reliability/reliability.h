// The commands of the program. They take the words after their name, print to standard output, and
// return the program's exit status: 0, or 1 if something is not as it should be. That words are
// numbers is not checked.

#pragma once

// sweep [SECONDS [SEED]]: makes each call fail in each possible way, one at a time, and judges the
// outcome. With SECONDS above 0 stops after that time; SEED (default: another every day) decides
// what comes first.
int Sweep(int argc, char** argv);

// crashes: kills boots, and prints a table: where a kill has lasting effects, and which. Returns 0.
int Crashes(int argc, char** argv);

// growth [BOOTS]: boots so often (default: 100000) in one process, whose memory and descriptors
// must not grow.
int Growth(int argc, char** argv);

// cases: plays the devices that standard input describes in the form of cases.cpp, and prints the
// input with the results, which it does not compare. Returns 1 at a line that it does not know, or
// that stands before the first device.
int Cases(int argc, char** argv);

// huge [MIB]: measures the memory that files of this size (default: 64) take, which is limited.
int Huge(int argc, char** argv);
