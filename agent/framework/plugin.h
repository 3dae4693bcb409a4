// The plug-in library.
#ifndef QX_AGENT_FRAMEWORK_PLUGIN_H
#define QX_AGENT_FRAMEWORK_PLUGIN_H

#include <string>
#include <vector>

namespace agent {

/// Owns a loaded plug-in: its operators are in the registry and its factories in
/// the kit as long as the object lives. To be made before the first request and
/// to go after the last.
class Plugin {
 public:
  /// Throws std::runtime_error with the path and the reason.
  explicit Plugin(const std::string& path);
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  /// Where the plug-in is looked for when nobody says: beside the program, in
  /// "../lib" from there, or where the product was installed. The first that exists, or
  /// the plain name.
  static std::string defaultPath();

  /// An exported symbol of the plug-in that this process has loaded; null when there
  /// is none, or no plug-in.
  static void* currentSymbol(const char* name);

 private:
  void* handle_ = nullptr;
  std::vector<std::string> operators_;
};

}  // namespace agent

#endif
