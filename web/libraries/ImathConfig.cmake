add_library(Imath::Imath INTERFACE IMPORTED GLOBAL)
target_include_directories(Imath::Imath INTERFACE /usr/include/Imath)
