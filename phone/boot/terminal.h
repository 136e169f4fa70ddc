// The launcher's side of an interactive phone: the phone has a terminal of its own, so that its
// shell gets job control without taking the caller's terminal away from the caller's shell.
#pragma once

// True when standard input and output are a terminal.
bool on_terminal();

// Copies between this process's terminal (set raw meanwhile) and the phone's terminal `master`
// until `pidfd` becomes readable, or `timeout_ms` (-1: none) has passed; window size changes are
// passed on. False on time-out. The terminal is restored in every case.
bool relay_terminal(int master, int pidfd, int timeout_ms);
