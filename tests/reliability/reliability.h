// The commands of the program. Each returns the program's exit status.

#pragma once

// sweep [SECONDS [SEED]]: makes calls fail, one at a time: all of them, or random ones for a time.
int Sweep(int argc, char** argv);

// crashes: prints a table of the places where killing a boot has lasting effects, and of these.
int Crashes(int argc, char** argv);

// growth [BOOTS]: looks for growth of memory and descriptors in one process.
int Growth(int argc, char** argv);

// cases: plays the devices that standard input describes.
int Cases(int argc, char** argv);

// huge [MIB]: measures the memory that a huge file takes.
int Huge(int argc, char** argv);
