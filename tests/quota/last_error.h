// The error that the quota functions left in the calling thread's request.
#ifndef QX_TESTS_QUOTA_LAST_ERROR_H
#define QX_TESTS_QUOTA_LAST_ERROR_H

#include <gtest/gtest.h>

#include <string>

#include "framework/request.h"

// Gives the error's text, and clears it; its code must have been -1.
inline std::string lastError() {
  const auto context = QXL::QXLRequestContextPrototype::getCurrent();
  const std::string text = context->getLastErrorText();
  EXPECT_EQ(context->getLastErrorCode(), text.empty() ? 0 : -1);
  context->setLastError(0, "");
  return text;
}

#endif
