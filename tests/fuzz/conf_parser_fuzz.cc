// Feeds any text to the configuration parser: it must neither crash nor throw with
// a handler that returns, and what it saves must parse, without an error, to the
// same again. Run:
//
//   build/fuzz/tests/fuzz/conf_parser_fuzz tests/fuzz/corpus/conf_parser
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "expand/conf_parser.h"

namespace {

struct Count : Expand::ConfParserErrHandler {
  void operator()(const Expand::Error& error) override {
    if (error.what()[0] != '[') abort();
    ++errors;
  }
  std::size_t errors = 0;
};

std::string parsedAndSaved(const std::string& text, Count& count) {
  Expand::ConfParser parser(&count);
  Expand::Config config;
  parser.init(Expand::ConfParser::FROM_STRING, text);
  parser.parse(config);
  std::string saved;
  parser.save(Expand::ConfParser::FROM_STRING, config, saved);
  return saved;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Count first;
  const std::string once = parsedAndSaved(std::string(data, data + size), first);
  Count second;
  const std::string twice = parsedAndSaved(once, second);
  if (once != twice || second.errors != 0) abort();
  return 0;
}
