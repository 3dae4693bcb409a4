#include "share/engine/answers.h"

#include "share/engine/payload.h"
#include "share/engine/records.h"

namespace engine {

namespace {

constexpr std::uint64_t kMostNames = 100000;  // in one frame

}  // namespace

Job takeWanted(std::string_view payload) {
  Decoder from(payload);
  Job job;
  job.wanted = true;
  job.directory = takePath(from);
  const std::uint64_t count = from.number(kMostNames, "number of names");
  if (count == 0) throw ProtocolError("the list of wanted files is empty");
  for (std::uint64_t i = 0; i < count; ++i) job.names.emplace_back(takeName(from));
  expectEnd(from);
  return job;
}

std::uint64_t takeCount(std::string_view payload) {
  Decoder from(payload);
  const std::uint64_t count = from.number();
  expectEnd(from);
  return count;
}

}  // namespace engine
