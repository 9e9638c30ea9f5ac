#include "app/program/Options.h"

namespace corvana {

Options Options::parse(const std::vector<std::string>& arguments) {
  Options options;
  for (const std::string& argument : arguments) {
    if (argument == "--help" || argument == "-h") {
      options.wish = Wish::help;
    } else if (argument == "--version") {
      options.wish = Wish::version;
    } else if (argument == "--headless") {
      options.headless = true;
      continue;
    } else {
      options.wish = Wish::refuse;
      options.wrong = argument;
    }
    break;
  }
  return options;
}

std::string Options::help() {
  return "Usage: corvana9-scheduler [--headless]\n"
         "\n"
         "Runs the scheduler of Corvana 9: it executes the programmed actions when they fall due,\n"
         "until it is told to quit. One of them runs for each user.\n"
         "\n"
         "  --headless  show no windows; what there is to tell goes to the standard error stream\n"
         "  --help      show this text\n"
         "  --version   show the version\n"
         "\n"
         "SIGTERM, SIGINT and SIGHUP end it in good order. The command corvana9 speaks to it.\n";
}

}  // namespace corvana
