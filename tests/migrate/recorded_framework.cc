#include "recorded_framework.h"

#include <unistd.h>

#include "framework/haul.h"
#include "framework/qxctl.h"
#include "framework/runner.h"

namespace {

RecordedFramework& record() { return RecordedFramework::instance(); }

void note(const std::string& call) {
  record().calls.push_back(call);
  if (access("/run/qx/lock/101.lck", F_OK) == 0) record().locked.push_back(call);
}

template <class T>
T next(std::deque<T>& values) {
  if (values.empty()) return T();
  T value = values.front();
  values.pop_front();
  return value;
}

std::string words(const char* const* argv) {
  std::string text = ":";
  for (; *argv; ++argv) text += std::string(" ") + *argv;
  return text;
}

std::string numbers(int first, int second) {
  return " " + std::to_string(first) + " " + std::to_string(second);
}

}  // namespace

RecordedFramework& RecordedFramework::instance() {
  static RecordedFramework framework;
  return framework;
}

namespace QXL {

struct GenExec::State {
  std::string chunk;
};

GenExec::GenExec(int bytes) : state_(new State) { note("runner " + std::to_string(bytes)); }
GenExec::~GenExec() { delete state_; }

int GenExec::execWithOnlyError(const char* const* argv, int flags, int seconds) {
  note("execWithOnlyError" + numbers(flags, seconds) + words(argv));
  return next(record().statuses);
}

int GenExec::execAsync(int flags, const char* const* argv, int seconds) {
  note("execAsync" + numbers(flags, seconds) + words(argv));
  return record().startResult;
}

int GenExec::wait() {
  note("wait");
  return next(record().statuses);
}

void GenExec::setfd(int stream, int fd) { note("setfd" + numbers(stream, fd)); }

void GenExec::setChunkDivider(const std::string& characters) {
  note("setChunkDivider " + characters);
}

int GenExec::execComplexBegin(const char* const* argv, int flags, int seconds, const char* input) {
  note("execComplexBegin" + numbers(flags, seconds) + (input ? " input" : " null") + words(argv));
  return record().startResult;
}

int GenExec::execComplexGet() {
  note("execComplexGet");
  return next(record().more);
}

char* GenExec::gets(int stream) {
  note("gets " + std::to_string(stream));
  if (record().chunks.empty()) return nullptr;
  state_->chunk = next(record().chunks);
  return state_->chunk.data();
}

int GenExec::execComplexEnd() {
  note("execComplexEnd");
  return next(record().statuses);
}

std::string GenExec::getOutput(int stream) const {
  note("getOutput " + std::to_string(stream));
  return "output of " + std::to_string(stream);
}

HWExec::HWExec(int bytes) : GenExec(bytes) { note("lasting"); }
HWExec::~HWExec() { note("lasting gone"); }

}  // namespace QXL

// The linker puts these in the place of the calls that the library makes (option
// --wrap), and gives the agent's own under the other names.
extern "C" {

int __real__ZN3QXL35QXLHaulSerializerBaseLocalPrototype6finishEv(
    QXL::QXLHaulSerializerBaseLocalPrototype* self);
int __wrap__ZN3QXL35QXLHaulSerializerBaseLocalPrototype6finishEv(
    QXL::QXLHaulSerializerBaseLocalPrototype* self);
int __wrap__ZN3QXL35QXLHaulSerializerBaseLocalPrototype6finishEv(
    QXL::QXLHaulSerializerBaseLocalPrototype* self) {
  note("base finish");
  return __real__ZN3QXL35QXLHaulSerializerBaseLocalPrototype6finishEv(self);
}

int __real__ZN3QXL15QXLRequestLocal10endCommandERKNS_19QXLRequestErrorDataE(
    QXL::QXLRequestLocal* self, const QXL::QXLRequestErrorData& error);
int __wrap__ZN3QXL15QXLRequestLocal10endCommandERKNS_19QXLRequestErrorDataE(
    QXL::QXLRequestLocal* self, const QXL::QXLRequestErrorData& error);
int __wrap__ZN3QXL15QXLRequestLocal10endCommandERKNS_19QXLRequestErrorDataE(
    QXL::QXLRequestLocal* self, const QXL::QXLRequestErrorData& error) {
  note("endCommand " + std::to_string(error.code) + error.message);
  return __real__ZN3QXL15QXLRequestLocal10endCommandERKNS_19QXLRequestErrorDataE(self, error);
}

int __wrap_qxctl_get_env_status(unsigned int ctid, qxctl_env_status_t* status, int mask);
int __wrap_qxctl_get_env_status(unsigned int, qxctl_env_status_t* status, int mask) {
  record().statusAsked = mask;
  status->mask = record().statusMask;
  return record().statusResult;
}
}
