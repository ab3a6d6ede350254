/**
 * Answers requests to the greenhouse API: reads one a line, prints the answer of each as a line.
 * With names of files instead, each file is one request.
 */
#include "greenhouse.h"
#include "support/served_api.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

int main(int argc, char **argv)
{
    greenhouse::Model model;
    ServedApi api(greenhouse::descriptor(), &model);
    for (int number = 1; number < argc; ++number) {
        std::ifstream file(argv[number], std::ios::binary);
        const std::string request{std::istreambuf_iterator<char>(file), {}};
        std::cout << api.ask(request) << '\n';
    }
    for (std::string request; argc == 1 && std::getline(std::cin, request);) {
        std::cout << api.ask(request) << '\n' << std::flush;
    }
    return EXIT_SUCCESS;
}
