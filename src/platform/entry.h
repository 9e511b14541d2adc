// The process entry: the platform's own main gathers the wide arguments, checks the machine, and calls this.
#pragma once

// Defined by the program.
int program_main(int argc, const wchar_t* const* argv);
