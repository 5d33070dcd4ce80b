package com.ostrel.zeld.interfaces;

// Hand-written in C++ (include/com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h): its parcel
// layout is fixed and its reader refuses truncated or malformed records.
parcelable ZelCallbackParamsParcelable cpp_header "com/ostrel/zeld/interfaces/ZelCallbackParamsParcelable.h";
