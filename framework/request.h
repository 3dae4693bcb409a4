// Requests: where their progress and their errors go.
#ifndef QX_FRAMEWORK_REQUEST_H
#define QX_FRAMEWORK_REQUEST_H

#include <string>

#include "framework/message.h"

namespace QXL {

class QXLAccessProviderPrototype;

/// How a command ended. Code 0 with an empty message is "no error of its own".
struct QXLRequestErrorData {
  int code = 0;
  std::string message;
};

/// One progress record. Percent is 0 to 100, or -1 when the record is a line of
/// text without a measure.
struct QXLRequestProgressData {
  explicit QXLRequestProgressData(const std::string& progressText) : text(progressText) {}
  std::string text;         ///< a line for people; may be empty
  std::string description;  ///< what the percent measures
  int percent = -1;
};

/// Receives what happens to a request while it runs. Called on the thread that
/// waits for the request, never after the request has returned.
class QXL_API QXLProgressHandlerPrototype : public virtual QXLRefCounter {
 public:
  virtual void progress(const QXLRequestProgressData& data) = 0;
  /// A request failed; code is never 0.
  virtual void error(int code, const std::string& text) = 0;
  /// A stage is about to be called, and has returned (with its result).
  virtual void stageBegins(const std::string& stage) = 0;
  virtual void stageEnds(const std::string& stage, int result) = 0;
};

/// The state of one request that its code reports into. One thread at a time.
class QXL_API QXLRequestContextPrototype : public virtual QXLRefCounter {
 public:
  /// A context of its own, for errors and progress that nobody is to see.
  static boost::intrusive_ptr<QXLRequestContextPrototype> createInstance();

  /// The context of the request that the calling thread serves. A thread that
  /// serves none gets one of its own. Never null.
  static boost::intrusive_ptr<QXLRequestContextPrototype> getCurrent();

  /// Records an error, replacing an earlier one. Code 0 clears it.
  virtual void setLastError(int code, const std::string& text) = 0;
  virtual int getLastErrorCode() const = 0;
  virtual std::string getLastErrorText() const = 0;
  virtual void reportProgress(const QXLRequestProgressData& data) = 0;

  void fsetLastError(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));
  /// Reports one line of text.
  void freportProgress(const char* format, ...) __attribute__((format(printf, 2, 3)));
};

/// Makes a context the calling thread's current one as long as the object lives.
class QXL_API QXLRequestContextScope {
 public:
  explicit QXLRequestContextScope(const boost::intrusive_ptr<QXLRequestContextPrototype>& context);
  ~QXLRequestContextScope();
  QXLRequestContextScope(const QXLRequestContextScope&) = delete;
  QXLRequestContextScope& operator=(const QXLRequestContextScope&) = delete;

 private:
  boost::intrusive_ptr<QXLRequestContextPrototype> previous_;
};

/// An object that makes or serves requests. A virtual base: the class that is
/// built with an access provider hands it on with setAccessProvider.
class QXL_API QXLRequest : public virtual QXLRefCounter {
 public:
  QXLRequest();
  ~QXLRequest() override;

  /// The context of the access provider, or the thread's current one without it.
  boost::intrusive_ptr<QXLRequestContextPrototype> getContext() const;
  /// A handler that records into this object's context what it is told.
  boost::intrusive_ptr<QXLProgressHandlerPrototype> getProgressHandler() const;
  const boost::intrusive_ptr<QXLAccessProviderPrototype>& getAccessProvider() const;

 protected:
  void setAccessProvider(const boost::intrusive_ptr<QXLAccessProviderPrototype>& access);

 private:
  boost::intrusive_ptr<QXLAccessProviderPrototype> access_;
};

/// Says how the next request of an object is to be made. The plug-in selects
/// synchronous calls only. Always a virtual base.
class QXL_API QXLRequestModificator : public virtual QXLRefCounter {
 public:
  /// The next request blocks its caller and reports to the handler (which may be
  /// null). An empty session name is the object's own session.
  virtual void sync(const boost::intrusive_ptr<QXLProgressHandlerPrototype>& handler,
                    const std::string& session) = 0;
};

/// Remembers the modifications for objects that send requests to an agent.
template <class Base>
class QXLRequestModificatorAgent : public virtual Base {
 public:
  void sync(const boost::intrusive_ptr<QXLProgressHandlerPrototype>& handler,
            const std::string& session) override {
    handler_ = handler;
    session_ = session;
  }

 protected:
  boost::intrusive_ptr<QXLProgressHandlerPrototype> handler_;
  std::string session_;
};

/// A command that runs here, in this process, on behalf of a request.
class QXL_API QXLRequestLocal : public virtual QXLRequest {
 public:
  QXLRequestLocal();
  ~QXLRequestLocal() override;

  /// Opens a command and forgets the error of an earlier one.
  void beginCommand();

  /// Closes the command and writes its result into the request's answer. With
  /// error code 0 the result is the error recorded in the context since
  /// beginCommand, or 0 when none was. Returns the result.
  int endCommand(const QXLRequestErrorData& error);

  /// As endCommand with code 0, and on success the writer adds to the answer.
  int endCommandWithAnswer(const QXLWriterPrototype& writer);

  /// The request's context, where errors and progress go.
  boost::intrusive_ptr<QXLRequestContextPrototype> getContextLocal() const;

  /// For the framework: closes a command that its code left open, and returns the
  /// result; 0 when no command is open.
  int closeCommand();

 private:
  bool open_ = false;
};

}  // namespace QXL

#endif
