# What the Python module needs: a Python 3 interpreter that can import numpy,
# its development files, and pybind11. Sets IMB_PYTHON_DEPS_FOUND.
#
# Debian's /usr/bin/python3 is the interpreter that has python3-numpy and
# python3-pytest; prefer it to whatever python3 comes first on PATH (a pyenv
# shim, a virtual environment). Set Python3_EXECUTABLE to build for another.
if(NOT DEFINED Python3_EXECUTABLE AND EXISTS /usr/bin/python3)
  set(Python3_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "Interpreter of the Python module and its tests")
endif()
set(IMB_PYTHON_DEPS_FOUND OFF)
find_package(Python3 QUIET COMPONENTS Interpreter Development.Module)
if(Python3_FOUND)
  find_package(pybind11 CONFIG QUIET)
  execute_process(COMMAND ${Python3_EXECUTABLE} -c "import numpy"
    RESULT_VARIABLE _imb_numpy OUTPUT_QUIET ERROR_QUIET)
  if(pybind11_FOUND AND _imb_numpy EQUAL 0)
    set(IMB_PYTHON_DEPS_FOUND ON)
  endif()
endif()
