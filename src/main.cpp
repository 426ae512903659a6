#include "hv_driver.h"

int main(int argc, char** argv) { return run_driver(argc, argv); }
