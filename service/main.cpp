#include "service/command_line.h"

int main(int argc, char* argv[]) { return corvane::run_command_line(argc, argv); }
