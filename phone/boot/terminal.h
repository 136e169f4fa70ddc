// The launcher's side of an interactive phone. The phone has a terminal of its own, so that its
// shell gets job control and the caller's shell keeps its terminal.
#pragma once

// True when standard input and output are a terminal.
bool on_terminal();

// Copies between this process's terminal (in raw mode meanwhile) and the phone's terminal `master`
// until `pidfd` becomes readable, or `timeout_ms` (-1: none) has passed; window size changes are
// passed on. False on time-out. The terminal is restored in every case.
bool relay_terminal(int master, int pidfd, int timeout_ms);
