add_library(osd_screenshot STATIC screenshot.cpp)
target_link_libraries(osd_screenshot PUBLIC osd_platform PRIVATE PNG::PNG)
