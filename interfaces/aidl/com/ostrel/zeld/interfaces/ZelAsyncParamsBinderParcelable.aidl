package com.ostrel.zeld.interfaces;

// Hand-written in C++ (include/com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h): its parcel
// layout is fixed and its reader refuses truncated or malformed records.
parcelable ZelAsyncParamsBinderParcelable cpp_header "com/ostrel/zeld/interfaces/ZelAsyncParamsBinderParcelable.h";
