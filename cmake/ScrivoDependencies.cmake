# Third-party libraries, all from Debian packages. The minimal OpenCV
# packages (core, imgproc) and libyuv ship neither CMake config nor
# pkg-config files, so they are found by their headers and libraries; a
# full OpenCV installation with OpenCVConfig.cmake is used when present.
# Each dependency becomes an imported target scrivo::<name>.

find_package(Threads REQUIRED)

find_package(OpenCV QUIET COMPONENTS core imgproc)
if(OpenCV_FOUND)
  add_library(scrivo::opencv INTERFACE IMPORTED)
  target_link_libraries(scrivo::opencv INTERFACE opencv_core opencv_imgproc)
  target_include_directories(scrivo::opencv SYSTEM INTERFACE ${OpenCV_INCLUDE_DIRS})
else()
  find_path(OPENCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4 REQUIRED)
  find_library(OPENCV_CORE_LIBRARY opencv_core REQUIRED)
  find_library(OPENCV_IMGPROC_LIBRARY opencv_imgproc REQUIRED)
  add_library(scrivo::opencv INTERFACE IMPORTED)
  target_link_libraries(scrivo::opencv INTERFACE ${OPENCV_IMGPROC_LIBRARY} ${OPENCV_CORE_LIBRARY})
  # OpenCV 4.6 headers warn under C++20: keep them out of our warnings.
  target_include_directories(scrivo::opencv SYSTEM INTERFACE ${OPENCV_INCLUDE_DIR})
endif()

find_path(JPEG_TURBO_INCLUDE_DIR jpeglib.h REQUIRED)
find_library(JPEG_TURBO_LIBRARY NAMES jpeg REQUIRED)
add_library(scrivo::jpeg INTERFACE IMPORTED)
target_include_directories(scrivo::jpeg SYSTEM INTERFACE ${JPEG_TURBO_INCLUDE_DIR})
target_link_libraries(scrivo::jpeg INTERFACE ${JPEG_TURBO_LIBRARY})

find_path(YUV_INCLUDE_DIR libyuv.h REQUIRED)
find_library(YUV_LIBRARY NAMES yuv REQUIRED)
add_library(scrivo::yuv INTERFACE IMPORTED)
target_include_directories(scrivo::yuv SYSTEM INTERFACE ${YUV_INCLUDE_DIR})
target_link_libraries(scrivo::yuv INTERFACE ${YUV_LIBRARY})

find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED)
add_library(scrivo::cli11 INTERFACE IMPORTED)
target_include_directories(scrivo::cli11 SYSTEM INTERFACE ${CLI11_INCLUDE_DIR})

if(SCRIVO_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(SCRIVO_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
