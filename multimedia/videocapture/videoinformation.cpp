#include "multimedia/videocapture/videoinformation.h"

VideoInformation::VideoInformation(const VideoInformation& other)
    : VideoInformation()
{
    *this = other;
}

VideoInformation& VideoInformation::operator=(const VideoInformation& other)
{
    const int own_rotate = facts.videoRotate;
    facts = other.facts;
    facts.videoRotate = own_rotate;
    return *this;
}

VideoInformation::~VideoInformation() = default;
