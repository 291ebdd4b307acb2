// The "C" locale for a while, in which the XML parser's classes of characters are those of ASCII.
#pragma once

namespace vorlen {

// The calling thread is in the "C" locale for the life of this object, as far as what the library calls depends on it.
class ClassicLocaleScope {
 public:
  ClassicLocaleScope();
  ~ClassicLocaleScope();
  ClassicLocaleScope(const ClassicLocaleScope&) = delete;
  ClassicLocaleScope& operator=(const ClassicLocaleScope&) = delete;

 private:
  void* classic_ = nullptr;
  void* before_ = nullptr;
};

}  // namespace vorlen
