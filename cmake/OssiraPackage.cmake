# Lets projects elsewhere build modules against this build tree: find_package(Ossira) with
# Ossira_DIR set to the build folder.
set_target_properties(ossira_frame PROPERTIES EXPORT_NAME Frame)
set_target_properties(TavrikOssira PROPERTIES EXPORT_NAME Runtime)
export(TARGETS ossira_frame TavrikOssira NAMESPACE Ossira::
       FILE ${PROJECT_BINARY_DIR}/OssiraTargets.cmake)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/OssiraConfig.cmake @ONLY CONTENT [=[
include("@PROJECT_BINARY_DIR@/OssiraTargets.cmake")
include("@PROJECT_SOURCE_DIR@/cmake/OssiraModule.cmake")
add_library(Ossira::Samples INTERFACE IMPORTED)
target_include_directories(Ossira::Samples INTERFACE "@PROJECT_SOURCE_DIR@/samples/include")
]=])
