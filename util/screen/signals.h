// The termination-signal layer: on a terminating signal it runs the program's
// cleanup (leaving curses mode) and then dies by the same signal.
#pragma once

// Registers cleanup(argument) for the terminating signals. Exits the process
// with 404 for a null routine and with 408 when called a second time.
int Signals_RegisterForTerminationSignals(void (*cleanup)(void*), void* argument);

// Where the handler writes its standard-error messages: a descriptor that
// stays valid for the run (the run log), or -1 for descriptor 2.
void Signals_SetErrorDescriptor(int fd);
