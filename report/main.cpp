#include "report.h"

int main(int argc, char** argv) { return velkorreport::reportMain(argc, argv); }
