// A progress handler that remembers.
#ifndef QX_TESTS_AGENT_RECORDER_H
#define QX_TESTS_AGENT_RECORDER_H

#include <functional>
#include <string>
#include <vector>

#include "framework/request.h"

namespace toy {

class Recorder : public QXL::QXLProgressHandlerPrototype {
 public:
  void progress(const QXL::QXLRequestProgressData& data) override {
    lines.push_back(data.text + (data.percent < 0
                                     ? ""
                                     : data.description + " " + std::to_string(data.percent)));
    if (onProgress) onProgress();
  }
  void error(int code, const std::string& text) override {
    lines.push_back("error " + std::to_string(code) + " " + text);
  }
  void stageBegins(const std::string& stage) override { lines.push_back("begin " + stage); }
  void stageEnds(const std::string& stage, int result) override {
    lines.push_back("end " + stage + " " + std::to_string(result));
  }

  std::vector<std::string> lines;
  std::function<void()> onProgress;
};

}  // namespace toy

#endif
