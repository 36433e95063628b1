#include "agent/cli/App.h"

int main(int argc, char** argv) { return agent::RunApp(argc, argv); }
