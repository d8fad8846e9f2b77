import QtQuick 2.15
import QtQuick.Templates 2.15 as T
import QtQuick.Controls.impl 2.15
import QtQuick.Controls.Universal 2.15

// A button with round corners; what stands on the accent is white in light and in dark.
T.Button {
    id: button

    readonly property color ink: enabled && highlighted ? "white" : Universal.foreground

    implicitWidth: implicitContentWidth + leftPadding + rightPadding
    implicitHeight: 36
    horizontalPadding: 14
    spacing: 8
    icon.width: 18
    icon.height: 18
    icon.color: ink
    opacity: enabled ? 1 : 0.4

    contentItem: IconLabel {
        spacing: button.spacing
        mirrored: button.mirrored
        display: button.display
        icon: button.icon
        text: button.text
        font: button.font
        color: button.ink
    }

    background: Rectangle {
        radius: 6
        color: button.highlighted && button.enabled ? Universal.accent : Universal.baseLowColor
        border.width: button.visualFocus ? 2 : 0
        border.color: Universal.foreground

        Rectangle {
            anchors.fill: parent
            radius: parent.radius
            visible: button.hovered || button.down
            color: button.down ? "#40000000" : "#20808080"
        }
    }
}
